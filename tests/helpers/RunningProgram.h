#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace helpers {

/// A child process of the test's, ended and waited for with the object.
class RunningProgram {
 public:
  /// Starts it; `inChild` runs before the program does. Returns once the program has said that it is ready.
  explicit RunningProgram(const std::string& program, const std::vector<std::string>& arguments = {"polite"},
                          const std::function<void()>& inChild = nullptr) {
    int ready[2];
    if (pipe(ready) != 0) throw std::runtime_error("pipe");
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ready[1], 1);
      close(ready[0]);
      close(ready[1]);
      if (inChild) inChild();
      exec(program, arguments);
    }
    close(ready[1]);
    char byte = 0;
    const bool started = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    if (!started) throw std::runtime_error("cannot start " + program);
  }
  ~RunningProgram() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    wait();
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  [[nodiscard]] bool hasEnded() const {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == pid_;
  }
  /// Waits for its end; the status of waitpid(2).
  int wait() {
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  [[noreturn]] static void exec(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> values = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) values.push_back(const_cast<char*>(argument.c_str()));
    values.push_back(nullptr);
    execv(program.c_str(), values.data());
    _exit(127);
  }

  pid_t pid_ = -1;
};

}  // namespace helpers
