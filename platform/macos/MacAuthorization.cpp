#include "platform/macos/MacAuthorization.h"

#include <Security/Authorization.h>
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "platform/Platform.h"
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

class FilePipe final : public CommunicationsPipe {
 public:
  explicit FilePipe(FILE* file) : file_(file, &std::fclose) {}
  int getCharacter() override { return std::fgetc(file_.get()); }

 private:
  std::unique_ptr<FILE, int (*)(FILE*)> file_;
};

bool holdsZeroByte(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

/// What the system is asked to start.
struct Command {
  std::string path;
  std::vector<std::string> arguments;
};

Command withoutOutput(const std::string& path, const std::vector<std::string>& arguments) {
  Command command{"/bin/bash", {"-p", "-c", R"(exec "$0" "$@" </dev/null >/dev/null)", path}};
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
  std::thread([question, rights, flags] {
    question->answer = askSystem(question->reference, rights, std::nullopt, flags);
    question->isAnswered = true;
    question->isDecided.raise();
  }).detach();
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
  auto* const execute =
      reinterpret_cast<Execute*>(::dlsym(RTLD_DEFAULT, "AuthorizationExecuteWithPrivileges"));
  if (execute == nullptr || !path.starts_with('/') || holdsZeroByte(path) ||
      std::any_of(arguments.begin(), arguments.end(), holdsZeroByte)) {
    return errAuthorizationToolExecuteFailure;
  }
  if (pipe == nullptr) return start(execute, reference, flags, withoutOutput(path, arguments), nullptr);
  FILE* output = nullptr;
  const AuthorizationStatus status = start(execute, reference, flags, {path, arguments}, &output);
  if (status == errAuthorizationSuccess && output != nullptr) *pipe = std::make_unique<FilePipe>(output);
  return status;
}

}  // namespace platform
