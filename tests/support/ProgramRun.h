#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace support {

/// What a program that has been run to its end has left: its exit status (128 and the signal's number when a
/// signal ended it), and what it wrote to standard output and error, mixed.
struct ProgramRun {
  int status = -1;
  std::string output;
};

/// Runs a program by its path, with the null device as standard input.
inline ProgramRun runProgram(const std::vector<std::string>& command) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  std::vector<std::string> copies = command;
  std::vector<char*> arguments;
  for (std::string& copy : copies) arguments.push_back(copy.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  const int failure = ::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), ::environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  ProgramRun run;
  char piece[4096];
  ssize_t count = 0;
  while ((count = ::read(ends[0], piece, sizeof piece)) > 0) {
    run.output.append(piece, static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  if (failure != 0) throw std::runtime_error("cannot start " + command.front());
  int status = 0;
  ::waitpid(child, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

}  // namespace support
