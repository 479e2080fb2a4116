// asuser USER -- PROGRAM [ARGUMENT...]
//
// Root's way to start a program of the desktop as the user who sits at the console: takes on the user's id,
// groups, home folder and session environment for good, then becomes the program. Nothing of root's is
// carried along: descriptors above the three streams are closed, signals are reset, and the environment is
// made anew; of the given one only the language and the display remain.
//
// Exit status: the program's; 125 when the arguments are wrong or the user cannot be taken on, 127 when the
// program cannot be started, as env(1) does it.

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/posix/Accounts.h"

namespace {

using platform::Account;

constexpr int kCannotTakeOn = 125;
constexpr int kCannotStart = 127;

int complain(const std::string& what) {
  std::fprintf(stderr, "asuser: %s\n", what.c_str());
  return kCannotTakeOn;
}

bool takeOn(const Account& account) {
  if (::initgroups(account.name.c_str(), account.group) != 0) return false;
  if (::setresgid(account.group, account.group, account.group) != 0) return false;
  if (::setresuid(account.user, account.user, account.user) != 0) return false;
  // Belief is not enough here: there must be no way back.
  return ::geteuid() == account.user && (account.user == 0 || ::setuid(0) != 0);
}

void resetProcess() {
  ::close_range(STDERR_FILENO + 1, ~0U, 0);
  for (int number = 1; number < NSIG; ++number) std::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::umask(022);
}

bool belongsTo(const std::string& path, const Account& account) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && status.st_uid == account.user;
}

bool isKept(std::string_view variable) {
  constexpr std::array<std::string_view, 5> kKept = {"LANG=", "LANGUAGE=", "LC_",
                                                     "DISPLAY=", "WAYLAND_DISPLAY="};
  for (const std::string_view kept : kKept) {
    if (variable.starts_with(kept)) return true;
  }
  return false;
}

/// The user's own session bus and display socket, where there are some.
void addSession(const Account& account, std::vector<std::string>& environment) {
  const std::string folder = "/run/user/" + std::to_string(account.user);
  if (!belongsTo(folder, account)) return;
  environment.push_back("XDG_RUNTIME_DIR=" + folder);
  if (belongsTo(folder + "/bus", account)) {
    environment.push_back("DBUS_SESSION_BUS_ADDRESS=unix:path=" + folder + "/bus");
  }
  const bool hasDisplay =
      std::getenv("WAYLAND_DISPLAY") != nullptr;  // NOLINT(concurrency-mt-unsafe): one thread
  if (!hasDisplay && belongsTo(folder + "/wayland-0", account)) {
    environment.emplace_back("WAYLAND_DISPLAY=wayland-0");
  }
}

void addDisplay(std::vector<std::string>& environment) {
  const bool hasDisplay = std::getenv("DISPLAY") != nullptr;  // NOLINT(concurrency-mt-unsafe): one thread
  if (!hasDisplay && ::access("/tmp/.X11-unix/X0", F_OK) == 0) environment.emplace_back("DISPLAY=:0");
}

std::vector<std::string> environmentOf(const Account& account) {
  std::vector<std::string> environment = {
      "HOME=" + account.home,
      "USER=" + account.name,
      "LOGNAME=" + account.name,
      "SHELL=" + (account.shell.empty() ? "/bin/sh" : account.shell),
      "PATH=/usr/local/bin:/usr/bin:/bin",
  };
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    if (isKept(*variable)) environment.emplace_back(*variable);
  }
  addSession(account, environment);
  addDisplay(environment);
  return environment;
}

[[noreturn]] void become(char** command, std::vector<std::string> environment) {
  std::vector<char*> variables;
  variables.reserve(environment.size() + 1);
  for (std::string& variable : environment) variables.push_back(variable.data());
  variables.push_back(nullptr);
  ::execve(command[0], command, variables.data());
  complain(std::string(command[0]) + ": " +
           std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): one thread
  std::exit(kCannotStart);         // NOLINT(concurrency-mt-unsafe)
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4 || std::string_view(argv[2]) != "--" || argv[3][0] != '/') {
    return complain("usage: asuser USER -- /PROGRAM [ARGUMENT...]");
  }
  const auto account = platform::accountNamed(argv[1]);
  if (!account) return complain(std::string(argv[1]) + ": no such user");
  resetProcess();
  if (!takeOn(*account)) return complain(std::string(argv[1]) + ": cannot take on this user");
  // Only now, with the user's rights: the folders may be the user's to arrange.
  if (::chdir(account->home.c_str()) != 0 && ::chdir("/") != 0) return complain("no folder to start in");
  become(argv + 3, environmentOf(*account));
}
