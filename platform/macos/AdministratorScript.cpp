#include "platform/macos/AdministratorScript.h"

#include "platform/Platform.h"
#include "platform/foundation/Exception.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

/// Takes the shell's text as its argument.
constexpr const char* kAsAdministrator =
    "do shell script (item 1 of command) with administrator privileges without altering line endings";

/// The number that AppleScript reports a declined dialog by, at the end of its message.
constexpr const char* kUserCanceled = "(-128)";

/// Between single quotation marks, as a shell reads it.
std::string quoted(const std::string& text) {
  std::string inQuotes = "'";
  for (const char character : text) {
    inQuotes += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return inQuotes + "'";
}

std::string shellTextOf(const std::string& path, const std::vector<std::string>& arguments) {
  std::string text = quoted(path);
  for (const std::string& argument : arguments) text += " " + quoted(argument);
  return text;
}

std::string withoutLineBreak(std::string text) {
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace

AuthorizationStatus AdministratorScript::start(const std::string& path,
                                               const std::vector<std::string>& arguments) {
  std::string nothing;
  // In the background, with nothing left open that AppleScript would wait for.
  return runScript(shellTextOf(path, arguments) + " </dev/null >/dev/null 2>&1 &", &nothing);
}

AuthorizationStatus AdministratorScript::run(const std::string& path,
                                             const std::vector<std::string>& arguments, std::string* output) {
  // Whatever status the program ends with: AppleScript would take another than 0 for a failure of its own.
  return runScript(shellTextOf(path, arguments) + " </dev/null || true", output);
}

AuthorizationStatus AdministratorScript::runScript(const std::string& shellText, std::string* output) {
  if (!foundation::isUtf8(shellText)) return errAuthorizationToolExecuteFailure;
  const std::shared_ptr<Subprocess> script = current().subprocesses.create(
      {.launchPath = "/usr/bin/osascript",
       .arguments = {"-e", "on run command", "-e", kAsAdministrator, "-e", "end run", shellText},
       .standardInput = Stream::nullDevice,
       .standardOutput = Stream::pipe,
       .standardError = Stream::pipe});
  if (!launch(script)) return isStopped() ? errAuthorizationCanceled : errAuthorizationToolExecuteFailure;
  std::string written;
  for (std::string piece = script->availableOutput(); !piece.empty(); piece = script->availableOutput()) {
    written += piece;
  }
  const std::string message = script->availableError();
  script->waitUntilExit();
  forget(script);
  if (script->terminationStatus() == 0) {
    *output = withoutLineBreak(std::move(written));
    return errAuthorizationSuccess;
  }
  const bool declined = isStopped() || withoutLineBreak(message).ends_with(kUserCanceled);
  return declined ? errAuthorizationCanceled : errAuthorizationToolExecuteFailure;
}

bool AdministratorScript::launch(const std::shared_ptr<Subprocess>& script) {
  const std::scoped_lock lock(mutex_);
  if (isStopped_) return false;
  try {
    script->launch();
  } catch (const foundation::Exception& exception) {
    NSLog("%@", exception.reason());
    return false;
  }
  running_.insert(script);
  return true;
}

void AdministratorScript::stopAsking() {
  const std::scoped_lock lock(mutex_);
  isStopped_ = true;
  for (const auto& script : running_) script->terminate();
}

bool AdministratorScript::isStopped() {
  const std::scoped_lock lock(mutex_);
  return isStopped_;
}

void AdministratorScript::forget(const std::shared_ptr<Subprocess>& script) {
  const std::scoped_lock lock(mutex_);
  running_.erase(script);
}

}  // namespace platform
