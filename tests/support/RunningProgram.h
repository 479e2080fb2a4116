#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

/// A child of the test that says on standard output when it is ready; ended and waited for with the object.
class RunningProgram {
 public:
  /// Starts it and returns once it is ready; `inChild` runs before the program does.
  explicit RunningProgram(const std::string& program, const std::vector<std::string>& arguments = {},
                          const std::function<void()>& inChild = nullptr) {
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(ready[1], STDOUT_FILENO);
      if (inChild) inChild();
      exec(program, arguments);
    }
    ::close(ready[1]);
    char byte = 0;
    const bool started = ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    if (!started) throw std::runtime_error("cannot start " + program);
  }
  ~RunningProgram() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    wait();
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  [[nodiscard]] bool hasEnded() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == pid_;
  }
  /// Waits for its end; the status of waitpid(2).
  int wait() {
    int status = -1;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }
  /// Waits for its end; the signal that ended it, 0 when it ended otherwise.
  int waitForSignal() {
    const int status = wait();
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  [[noreturn]] static void exec(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> values = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) values.push_back(const_cast<char*>(argument.c_str()));
    values.push_back(nullptr);
    ::execv(program.c_str(), values.data());
    ::_exit(127);
  }

  pid_t pid_ = -1;
};

}  // namespace support
