#include "platform/macos/MacAuthorization.h"

#include <Security/Authorization.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <thread>

#include "platform/Platform.h"
#include "platform/posix/BlockedSignals.h"
#include "platform/posix/ReadableWait.h"
#include "platform/posix/WakePipe.h"

namespace platform {
namespace {

static_assert(kAuthorizationFlagInteractionAllowed == ::kAuthorizationFlagInteractionAllowed &&
              kAuthorizationFlagExtendRights == ::kAuthorizationFlagExtendRights &&
              kAuthorizationFlagPreAuthorize == ::kAuthorizationFlagPreAuthorize &&
              errAuthorizationSuccess == ::errAuthorizationSuccess &&
              errAuthorizationToolExecuteFailure == ::errAuthorizationToolExecuteFailure);

using Execute = OSStatus(::AuthorizationRef, const char*, ::AuthorizationFlags, char* const*, FILE**);

/// An authorization is the system's own pointer, under the name that the program has for it.
::AuthorizationRef nativeOf(AuthorizationRef reference) {
  return reinterpret_cast<::AuthorizationRef>(reference);
}

AuthorizationStatus handOut(AuthorizationStatus status, ::AuthorizationRef made,
                            AuthorizationRef* reference) {
  // The system's pointer is to what is constant to others; nobody here looks behind it.
  *reference = status == errAuthorizationSuccess
                   ? reinterpret_cast<AuthorizationRef>(const_cast<AuthorizationOpaqueRef*>(made))
                   : nullptr;
  return status;
}

/// A set of items that points into strings which others own.
class ItemSet {
 public:
  void add(const char* name, const std::string& value) {
    // Read only, though the system's structure does not say so.
    items_.push_back({name, value.size(), const_cast<char*>(value.data()), 0});
  }
  void add(const std::string& right) { items_.push_back({right.c_str(), 0, nullptr, 0}); }
  [[nodiscard]] const AuthorizationItemSet* get() {
    set_ = {static_cast<UInt32>(items_.size()), items_.data()};
    return items_.empty() ? nullptr : &set_;
  }

 private:
  std::vector<AuthorizationItem> items_;
  AuthorizationItemSet set_{};
};

ItemSet itemsOf(const std::optional<AuthorizationEnvironment>& environment) {
  ItemSet items;
  if (environment) {
    items.add(kAuthorizationEnvironmentUsername, environment->username);
    items.add(kAuthorizationEnvironmentPassword, environment->password);
  }
  return items;
}

AuthorizationStatus askSystem(AuthorizationRef reference, const std::vector<std::string>& rights,
                              const std::optional<AuthorizationEnvironment>& environment,
                              AuthorizationFlags flags) {
  ItemSet wanted;
  for (const std::string& right : rights) wanted.add(right);
  ItemSet items = itemsOf(environment);
  return AuthorizationCopyRights(nativeOf(reference), wanted.get(), items.get(), flags, nullptr);
}

using FileStream = std::unique_ptr<FILE, int (*)(FILE*)>;

class FilePipe final : public CommunicationsPipe {
 public:
  explicit FilePipe(FILE* file) : file_(file, &std::fclose) {}
  int getCharacter() override { return std::fgetc(file_.get()); }

 private:
  FileStream file_;
};

/// What a program has written already.
class TextPipe final : public CommunicationsPipe {
 public:
  explicit TextPipe(std::string text) : text_(std::move(text)) {}
  int getCharacter() override { return at_ < text_.size() ? static_cast<unsigned char>(text_[at_++]) : -1; }

 private:
  std::string text_;
  std::size_t at_ = 0;
};

bool holdsZeroByte(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

/// As far as this process may look; root may see more.
bool mayBeProgram(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno == EACCES;
  return S_ISREG(status.st_mode) && (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

bool canBeStarted(const std::string& path, const std::vector<std::string>& arguments) {
  return path.starts_with('/') && !holdsZeroByte(path) &&
         std::none_of(arguments.begin(), arguments.end(), holdsZeroByte) && mayBeProgram(path);
}

/// What the system is asked to start.
struct Command {
  std::string path;
  std::vector<std::string> arguments;
};

/// Tells its process id first.
Command withoutOutput(const std::string& path, const std::vector<std::string>& arguments) {
  Command command{"/bin/bash", {"-p", "-c", R"(echo $$; exec "$0" "$@" </dev/null >/dev/null)", path}};
  command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
  return command;
}

AuthorizationStatus start(Execute* execute, AuthorizationRef reference, AuthorizationFlags flags,
                          Command command, FILE** pipe) {
  std::vector<char*> pointers;
  pointers.reserve(command.arguments.size() + 1);
  for (std::string& argument : command.arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return execute(nativeOf(reference), command.path.c_str(), flags, pointers.data(), pipe);
}

/// 0 where none was told.
pid_t announcedProcess(FILE* stream) {
  pid_t process = 0;
  int character = std::fgetc(stream);
  for (; character >= '0' && character <= '9' && process < 100'000'000; character = std::fgetc(stream)) {
    process = process * 10 + (character - '0');
  }
  return character == '\n' ? process : 0;
}

/// Leaves no zombie. Without a thread it is collected when this process ends.
void collectAtItsEnd(pid_t child) {
  try {
    const BlockedSignals blocked;
    std::thread([child] {
      while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
    }).detach();
  } catch (const std::system_error&) {
    return;
  }
}

AuthorizationStatus startWithoutOutput(Execute* execute, AuthorizationRef reference, AuthorizationFlags flags,
                                       const std::string& path, const std::vector<std::string>& arguments) {
  FILE* file = nullptr;
  const auto status = start(execute, reference, flags, withoutOutput(path, arguments), &file);
  if (status != errAuthorizationSuccess || file == nullptr) return status;
  const FileStream stream(file, &std::fclose);
  const pid_t process = announcedProcess(stream.get());
  if (process == 0) return errAuthorizationToolExecuteFailure;
  collectAtItsEnd(process);
  return errAuthorizationSuccess;
}

}  // namespace

struct MacAuthorization::Question {
  explicit Question(AuthorizationRef asked) : reference(asked) {}

  AuthorizationRef reference;
  AuthorizationStatus answer = errAuthorizationCanceled;  ///< REQUIRES isAnswered
  std::atomic<bool> isAnswered = false;
  WakePipe isDecided;  ///< raised by the answer, and by stopAsking()
};

MacAuthorization::MacAuthorization() = default;

MacAuthorization::~MacAuthorization() = default;

AuthorizationStatus MacAuthorization::copyPrivilegedReference(AuthorizationFlags flags,
                                                              AuthorizationRef* reference) {
  ::AuthorizationRef made = nullptr;
  const OSStatus status = AuthorizationCopyPrivilegedReference(&made, flags);
  return handOut(status, made, reference);
}

AuthorizationStatus MacAuthorization::create(const std::optional<AuthorizationEnvironment>& environment,
                                             AuthorizationFlags flags, AuthorizationRef* reference) {
  ::AuthorizationRef made = nullptr;
  ItemSet items = itemsOf(environment);
  const OSStatus status = AuthorizationCreate(nullptr, items.get(), flags, &made);
  return handOut(status, made, reference);
}

AuthorizationStatus MacAuthorization::copyRights(AuthorizationRef reference,
                                                 const std::vector<std::string>& rights,
                                                 const std::optional<AuthorizationEnvironment>& environment,
                                                 AuthorizationFlags flags) {
  const bool mayAsk = (flags & kAuthorizationFlagInteractionAllowed) != 0 && !environment;
  return mayAsk ? ask(reference, rights, flags) : askSystem(reference, rights, environment, flags);
}

AuthorizationStatus MacAuthorization::ask(AuthorizationRef reference, const std::vector<std::string>& rights,
                                          AuthorizationFlags flags) {
  const auto question = std::make_shared<Question>(reference);
  if (!begin(question)) {
    const auto withoutAsking = flags & ~kAuthorizationFlagInteractionAllowed;
    const auto status = askSystem(reference, rights, std::nullopt, withoutAsking);
    return status == errAuthorizationInteractionNotAllowed ? errAuthorizationCanceled : status;
  }
  {
    const BlockedSignals blocked;
    std::thread([question, rights, flags] {
      question->answer = askSystem(question->reference, rights, std::nullopt, flags);
      question->isAnswered = true;
      question->isDecided.raise();
    }).detach();
  }
  waitUntilReadable(current().mainThread, question->isDecided.descriptor());
  return end(question);
}

bool MacAuthorization::begin(const std::shared_ptr<Question>& question) {
  const std::scoped_lock lock(mutex_);
  if (!isStopped_) questions_.insert(question);
  return !isStopped_;
}

AuthorizationStatus MacAuthorization::end(const std::shared_ptr<Question>& question) {
  if (!question->isAnswered) return errAuthorizationCanceled;
  const std::scoped_lock lock(mutex_);
  questions_.erase(question);
  return question->answer;
}

void MacAuthorization::stopAsking() {
  const std::scoped_lock lock(mutex_);
  isStopped_ = true;
  for (const auto& question : questions_) question->isDecided.raise();
  script_.stopAsking();
}

bool MacAuthorization::isAskedAbout(AuthorizationRef reference) {
  const std::scoped_lock lock(mutex_);
  return std::any_of(questions_.begin(), questions_.end(), [reference](const auto& question) {
    return question->reference == reference && !question->isAnswered;
  });
}

AuthorizationStatus MacAuthorization::free(AuthorizationRef reference, AuthorizationFlags flags) {
  // The system still needs it.
  if (isAskedAbout(reference)) return errAuthorizationSuccess;
  return AuthorizationFree(nativeOf(reference), flags);
}

AuthorizationStatus MacAuthorization::executeWithPrivileges(AuthorizationRef reference,
                                                            const std::string& path, AuthorizationFlags flags,
                                                            const std::vector<std::string>& arguments,
                                                            std::unique_ptr<CommunicationsPipe>* pipe) {
  if (!canBeStarted(path, arguments)) return errAuthorizationToolExecuteFailure;
  auto* const execute =
      reinterpret_cast<Execute*>(::dlsym(RTLD_DEFAULT, "AuthorizationExecuteWithPrivileges"));
  if (execute == nullptr) return startByScript(path, arguments, pipe);
  if (pipe == nullptr) return startWithoutOutput(execute, reference, flags, path, arguments);
  FILE* output = nullptr;
  const AuthorizationStatus status = start(execute, reference, flags, {path, arguments}, &output);
  if (status == errAuthorizationSuccess && output != nullptr) *pipe = std::make_unique<FilePipe>(output);
  return status;
}

AuthorizationStatus MacAuthorization::startByScript(const std::string& path,
                                                    const std::vector<std::string>& arguments,
                                                    std::unique_ptr<CommunicationsPipe>* pipe) {
  if (pipe == nullptr) return script_.start(path, arguments);
  std::string output;
  const AuthorizationStatus status = script_.run(path, arguments, &output);
  if (status == errAuthorizationSuccess) *pipe = std::make_unique<TextPipe>(std::move(output));
  return status;
}

}  // namespace platform
