// A program for killtool's tests to be copied to a made-up place and run there. It says "r" on standard
// output when it is ready.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

#include "helpers/KillTool.h"

namespace {

void endPolitely(int /*signal*/) {
  _exit(7);
}

int killBelow(const char* rootFolder) {
  helpers::Report report("killtool");
  helpers::KillTool::Settings settings;
  settings.rootFolder = rootFolder;
  return static_cast<int>(helpers::KillTool(platform::ProcessTable(), settings, report).run({}));
}

int runAndWait(char** arguments) {
  const pid_t child = fork();
  if (child == 0) {
    execv(arguments[0], arguments);
    _exit(127);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}

/// Forks on SIGTERM, as a handler may, without the C library's own handlers: the child goes on, in the same
/// group, the parent ends.
void endAndGoOn(int /*signal*/) {
  if (_Fork() != 0) _exit(7);
  alarm(60);  // nobody waits for it
}

/// Stays, with one child that leads a session of its own.
void stayWithChild(int /*signal*/) {
  if (_Fork() == 0) {
    alarm(60);
    setsid();
    std::signal(SIGTERM, endPolitely);
  }
}

}  // namespace

/// target_program polite | reborn | parent | stubborn | kill ROOT | run PROGRAM ARGUMENT...
int main(int argc, char** argv) {
  const std::string_view role = argc > 1 ? argv[1] : "polite";
  if (role == "kill") return killBelow(argv[2]);
  std::signal(SIGTERM, role == "polite" ? endPolitely : SIG_IGN);
  if (role == "reborn") std::signal(SIGTERM, endAndGoOn);
  if (role == "parent") std::signal(SIGTERM, stayWithChild);
  if (write(1, "r", 1) != 1) return 1;
  if (role == "run") {
    std::signal(SIGTERM, SIG_DFL);
    return runAndWait(argv + 2);
  }
  while (true) pause();
}
