#include "helpers/HelperProcess.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "platform/posix/StandardStreams.h"

namespace helpers {
namespace {

constexpr int kOsError = 71;  // EX_OSERR

volatile std::sig_atomic_t stopWish = 0;

void rememberStopWish(int /*signal*/) {
  stopWish = 1;
}

void setAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = handler == rememberStopWish ? SA_RESTART : 0;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

void resetSignals() {
  for (int signal = 1; signal < NSIG; ++signal) {
    if (signal != SIGKILL && signal != SIGSTOP) setAction(signal, SIG_DFL);
  }
  setAction(SIGPIPE, SIG_IGN);
  setAction(SIGXFSZ, SIG_IGN);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) setAction(signal, rememberStopWish);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

void prepareHelperProcess() {
  if (!platform::openStandardStreams()) _exit(kOsError);
  syscall(SYS_close_range, 3U, ~0U, 0U);
  clearenv();
  umask(0);
  if (chdir("/") != 0) _exit(kOsError);
  resetSignals();
}

bool stopRequested() {
  return stopWish != 0;
}

}  // namespace helpers
