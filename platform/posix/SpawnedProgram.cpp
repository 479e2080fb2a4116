#include "platform/posix/SpawnedProgram.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "platform/posix/ChildCalls.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void setStream(int stream, int descriptor) {
    if (descriptor < 0) {
      const int access = stream == STDIN_FILENO ? O_RDONLY : O_WRONLY;
      ::posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", access, 0);
    } else {
      passStream(actions_, descriptor, stream);
    }
  }
  /// Answers flags for the attributes.
  [[nodiscard]] int closeAllOthers() { return closeOtherDescriptors(actions_); }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class Attributes {
 public:
  Attributes(ChildSession session, int moreFlags) {
    ::posix_spawnattr_init(&attributes_);
    // The leader of a session leads a process group too.
    const int group = session == ChildSession::own ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP;
    const int flags = group | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | moreFlags;
    ::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    sigset_t signals;
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
  }
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

bool hasZeroByte(const std::vector<std::string>& texts) {
  return std::any_of(texts.begin(), texts.end(),
                     [](const std::string& text) { return text.find('\0') != std::string::npos; });
}

}  // namespace

Result<pid_t> spawnProgram(const ProgramToSpawn& program) {
  if (hasZeroByte(program.command) || hasZeroByte(program.environment)) {
    return systemError(EINVAL, program.command.front());
  }
  keepExitStatuses();
  FileActions actions;
  actions.setStream(STDIN_FILENO, program.standardInput);
  actions.setStream(STDOUT_FILENO, program.standardOutput);
  actions.setStream(STDERR_FILENO, program.standardError);
  const Attributes attributes(program.session, actions.closeAllOthers());
  std::vector<std::string> command = program.command;
  std::vector<std::string> environment = program.environment;
  const std::string& executable = program.executable.empty() ? program.command.front() : program.executable;
  pid_t child = -1;
  const int reason = ::posix_spawn(&child, executable.c_str(), actions.get(), attributes.get(),
                                   pointersTo(command).data(), pointersTo(environment).data());
  if (reason != 0) return systemError(reason, program.command.front());
  return child;
}

int waitForProgram(pid_t child) {
  int status = -1;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

void endProgram(pid_t child) {
  ::kill(child, SIGKILL);
  waitForProgram(child);
}

void keepExitStatuses() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) return;
  const bool isIgnored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
  if (!isIgnored && (action.sa_flags & SA_NOCLDWAIT) == 0) return;
  if (isIgnored) action.sa_handler = SIG_DFL;
  action.sa_flags &= ~SA_NOCLDWAIT;
  ::sigaction(SIGCHLD, &action, nullptr);
}

int ownStream(int stream) {
  return ::fcntl(stream, F_GETFD) < 0 ? -1 : stream;
}

std::vector<std::string> currentEnvironment() {
  std::vector<std::string> variables;
  for (char** variable = ownEnvironment(); variable != nullptr && *variable != nullptr; ++variable) {
    variables.emplace_back(*variable);
  }
  return variables;
}

}  // namespace platform
