#include "workstation/session/Launch.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "workstation/ArgumentVector.h"
#include "workstation/Layout.h"

namespace workstation::session {
namespace {

constexpr int readyPatience = 5000;

/// Where the program lies, as a shell would find it; the name itself when it is nowhere.
std::string located(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  for (const auto& folder : {std::string("/usr/bin"), std::string("/bin"), std::string("/usr/sbin"),
                             std::string("/sbin"), std::string(hostToolsFolder)}) {
    auto path = folder;
    path.append("/").append(name);
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return name;
}

bool become(const Program& program) {
  for (const int capability : program.droppedCapabilities) {
    if (::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) return false;
  }
  return ::setgroups(program.groups.size(), program.groups.data()) == 0 &&
         ::setgid(program.account.group) == 0 && ::setuid(program.account.user) == 0;
}

void restoreSignals() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(number, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void leaveForeground() {
  ::setsid();
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
}

/// Runs in the child, between fork and exec.
[[noreturn]] void run(const Program& program, char* const* arguments, char* const* environment) {
  restoreSignals();
  if (program.background) leaveForeground();
  if (program.keptDescriptor >= 0) ::fcntl(program.keptDescriptor, F_SETFD, 0);
  if (!become(program)) ::_exit(125);
  if (::chdir(program.account.home.c_str()) != 0 && ::chdir("/") != 0) ::_exit(125);
  ::execve(arguments[0], arguments, environment);
  const int error = errno;
  ::dprintf(STDERR_FILENO, "enter-workstation: %s: %s\n", arguments[0], ::strerrordesc_np(error));
  ::_exit(error == ENOENT ? 127 : 126);
}

}  // namespace

pid_t launch(const Program& program) {
  auto words = program.command;
  words[0] = located(words[0]);
  std::vector<std::string> settings;
  for (const auto& [name, text] : program.environment)
    settings.push_back(std::string(name).append("=").append(text));
  const auto arguments = argumentVector(words);
  const auto environment = argumentVector(settings);
  const pid_t child = ::fork();
  if (child == 0) run(program, arguments.data(), environment.data());
  return child;
}

pid_t launchAndWaitUntilReady(Program program) {
  std::array<int, 2> ready{};
  if (::pipe2(ready.data(), O_CLOEXEC) != 0) return -1;
  program.keptDescriptor = ready[1];
  program.environment.emplace_back(readyDescriptorVariable, std::to_string(ready[1]));
  const pid_t child = launch(program);
  ::close(ready[1]);
  pollfd waited{ready[0], POLLIN, 0};
  ::poll(&waited, 1, readyPatience);
  ::close(ready[0]);
  return child;
}

}  // namespace workstation::session
