#include "platform/macos/MacChildren.h"

#include <crt_externs.h>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <csignal>

#include "platform/posix/ChildEnvironment.h"

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
    } else if (descriptor == stream) {
      ::posix_spawn_file_actions_addinherit_np(&actions_, stream);
    } else {
      ::posix_spawn_file_actions_adddup2(&actions_, descriptor, stream);
    }
  }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class Attributes {
 public:
  Attributes() {
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setflags(&attributes_,
                               static_cast<short>(POSIX_SPAWN_SETSID | POSIX_SPAWN_CLOEXEC_DEFAULT |
                                                  POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
    sigset_t signals{};
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

}  // namespace

Result<pid_t> startMacChild(const ChildToStart& child) {
  FileActions actions;
  actions.setStream(STDIN_FILENO, child.standardInput);
  actions.setStream(STDOUT_FILENO, child.standardOutput);
  actions.setStream(STDERR_FILENO, child.standardError);
  std::vector<std::string> command = child.command;
  std::vector<std::string> environment = childEnvironment(*_NSGetEnviron(), ::geteuid() == 0);
  pid_t started = -1;
  const Attributes attributes;
  const int reason = ::posix_spawn(&started, child.executable.c_str(), actions.get(), attributes.get(),
                                   pointersTo(command).data(), pointersTo(environment).data());
  if (reason != 0) return systemError(reason, child.executable);
  return started;
}

}  // namespace platform
