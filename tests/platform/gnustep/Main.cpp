#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

/// Runs the tests in a process with folders of its own: GNUstep's libraries look for their daemons there, and
/// start new ones where they find none. Those are this process's to end, and no others.
namespace {

constexpr const char* kIsInside = "QUILLMEND_GNUSTEP_TEST";

std::vector<pid_t> children() {
  const std::string self = std::to_string(::getpid());
  std::ifstream list("/proc/" + self + "/task/" + self + "/children");
  std::vector<pid_t> found;
  for (pid_t child = 0; list >> child;) found.push_back(child);
  return found;
}

/// Also those that come to this process when their own parents end.
void endChildren() {
  for (auto left = children(); !left.empty(); left = children()) {
    for (const pid_t child : left) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
    }
  }
}

int statusOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

[[noreturn]] void runInside(const std::string& folder, char** arguments) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::setenv(kIsInside, "1", 1);
  for (const char* const variable : {"HOME", "TMPDIR", "XDG_RUNTIME_DIR"})
    ::setenv(variable, folder.c_str(), 1);
  // The user's places as GNUstep wants them: seen from the home of the account.
  const passwd* const account = ::getpwuid(::getuid());
  const auto below = std::filesystem::relative(folder, account == nullptr ? "/" : account->pw_dir).string();
  std::ofstream(folder + "/gnustep.conf") << "GNUSTEP_USER_CONFIG_FILE=\n"
                                          << "GNUSTEP_USER_DIR=" << below << "/GNUstep\n"
                                          << "GNUSTEP_USER_DEFAULTS_DIR=" << below << "/GNUstep/Defaults\n"
                                          << "GNUSTEP_LOCAL_TOOLS=" << folder << "/tools\n";
  ::setenv("GNUSTEP_CONFIG_FILE", (folder + "/gnustep.conf").c_str(), 1);
  ::execv("/proc/self/exe", arguments);
  ::_exit(127);
}

}  // namespace

int main(int argc, char** argv) {
  // With the options that GoogleTest takes out.
  std::vector<char*> arguments(argv, argv + argc + 1);
  ::testing::InitGoogleTest(&argc, argv);
  if (std::getenv(kIsInside) != nullptr || GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const support::TemporaryFolder folder;
  const pid_t inside = ::fork();
  if (inside == 0) runInside(folder.path(), arguments.data());
  const int status = statusOf(inside);
  endChildren();
  return status;
}
