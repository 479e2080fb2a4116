#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>

namespace support {

/// A child of the test that says "+" on standard output once it runs; ended and waited for by the destructor.
class RunningProgram {
 public:
  explicit RunningProgram(const std::string& path) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string name = path;
    char* const arguments[] = {name.data(), nullptr};
    const int status = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, arguments, ::environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    char byte = 0;
    const bool runs = status == 0 && ::read(ends[0], &byte, 1) == 1;
    ::close(ends[0]);
    if (!runs) throw std::runtime_error("cannot start " + path);
  }
  ~RunningProgram() {
    if (!ended_) ::kill(pid_, SIGKILL);
    waitForSignal();
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  [[nodiscard]] bool isRunning() {
    if (ended_) return false;
    ended_ = ::waitpid(pid_, &status_, WNOHANG) == pid_;
    return !ended_;
  }

  /// The signal that ended it; 0 when it ended otherwise.
  int waitForSignal() {
    if (!ended_) ended_ = ::waitpid(pid_, &status_, 0) == pid_;
    return ended_ && WIFSIGNALED(status_) ? WTERMSIG(status_) : 0;
  }

 private:
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
};

}  // namespace support
