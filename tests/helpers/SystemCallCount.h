#pragma once

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

namespace helpers {

struct CountedRun {
  int exitStatus = -1;
  long systemCalls = 0;
};

/// Runs a program under ptrace(2) and counts its system calls. -1 as exit status where it did not exit by
/// itself.
inline CountedRun countSystemCalls(std::vector<std::string> command) {
  std::vector<char*> values;
  for (std::string& value : command) values.push_back(value.data());
  values.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    // A leak checker cannot look at a process that is being traced.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    execv(values[0], values.data());
    _exit(127);
  }
  CountedRun run;
  int status = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  long stops = 0;
  int deliver = 0;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, deliver) == 0 && waitpid(child, &status, 0) == child) {
    if (!WIFSTOPPED(status)) break;
    const int signal = WSTOPSIG(status);
    if (signal == (SIGTRAP | 0x80)) ++stops;
    deliver = signal == (SIGTRAP | 0x80) || signal == SIGTRAP ? 0 : signal;
  }
  if (WIFEXITED(status)) run.exitStatus = WEXITSTATUS(status);
  run.systemCalls = stops / 2;  // each call stops twice: at its start and at its end
  return run;
}

}  // namespace helpers
