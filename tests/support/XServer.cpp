#include "tests/support/XServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace support {
namespace {

/// Its output is nobody's; a descriptor above the standard ones is handed on under the same number.
pid_t start(std::vector<std::string> command, int handedOn = -1) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (handedOn >= 0) posix_spawn_file_actions_adddup2(&actions, handedOn, handedOn);
  // Goes with this process, however that ends.
  command.insert(command.begin(), {"setpriv", "--pdeathsig", "TERM", "--"});
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  const int failure = ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), ::environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error("cannot start " + command.front());
  return child;
}

void end(pid_t child) {
  if (child <= 0) return;
  ::kill(child, SIGTERM);
  ::waitpid(child, nullptr, 0);
}

/// A line from a pipe, without the line break; "" when none comes in 20 seconds.
std::string lineFrom(int descriptor) {
  std::string line;
  char letter = '\0';
  pollfd watched{descriptor, POLLIN, 0};
  while (::poll(&watched, 1, 20000) > 0 && ::read(descriptor, &letter, 1) == 1 && letter != '\n') {
    line += letter;
  }
  return line;
}

/// A window that is shown before there is a manager stays without the keyboard.
void awaitWindowManager() {
  constexpr int kLooks = 400;
  for (int look = 0; look < kLooks; ++look) {
    int status = -1;
    ::waitpid(start({"xdotool", "get_desktop"}), &status, 0);
    if (status == 0) return;
    ::usleep(50000);
  }
  throw std::runtime_error("no window manager");
}

}  // namespace

XServer::XServer() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  server_ = start({"Xvfb", "-displayfd", std::to_string(ends[1]), "-screen", "0", "1600x1300x24", "-dpi",
                   "96", "-nolisten", "tcp", "-noreset"},
                  ends[1]);
  ::close(ends[1]);
  number_ = lineFrom(ends[0]);
  ::close(ends[0]);
  if (number_.empty()) throw std::runtime_error("Xvfb has no display");
  ::setenv("DISPLAY", name().c_str(), 1);
  ::unsetenv("WAYLAND_DISPLAY");
  windowManager_ = start({"openbox"});
  awaitWindowManager();
}

XServer::~XServer() {
  end(windowManager_);
  end(server_);
}

}  // namespace support
