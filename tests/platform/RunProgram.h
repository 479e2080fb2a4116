#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

namespace tests {

/// Runs a program to its end and answers its exit status (-1 when it was ended by a signal or not started)
/// and what it wrote to standard output and error together. For the tests of what the platform's own
/// subprocesses are not to be trusted with yet.
inline std::pair<int, std::string> runProgram(std::vector<std::string> command) {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) return {-1, ""};
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t streams;
  ::posix_spawn_file_actions_init(&streams);
  ::posix_spawn_file_actions_adddup2(&streams, ends[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&streams, ends[1], STDERR_FILENO);
  pid_t child = -1;
  const int reason = ::posix_spawnp(&child, arguments[0], &streams, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&streams);
  ::close(ends[1]);
  std::string output;
  char piece[4096];
  for (ssize_t length = 0; (length = ::read(ends[0], piece, sizeof(piece))) > 0;) {
    output.append(piece, static_cast<std::size_t>(length));
  }
  ::close(ends[0]);
  int status = 0;
  if (reason != 0 || ::waitpid(child, &status, 0) != child) return {-1, output};
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

}  // namespace tests
