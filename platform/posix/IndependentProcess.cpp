#include "platform/posix/IndependentProcess.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "platform/posix/InheritedState.h"
#include "platform/posix/StandardStreams.h"

namespace platform {
namespace {

constexpr int kOsError = 71;           // EX_OSERR
constexpr rlim_t kDescriptors = 2048;  // folders of a deep tree, and files with several names
constexpr rlim_t kStack = 8UL << 20;   // a copy of folders in each other

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

void setLimit(auto what, rlim_t least) {
  rlimit limit{};
  if (getrlimit(what, &limit) != 0) return;
  const rlimit wanted{std::max(limit.rlim_cur, least), std::max(limit.rlim_max, least)};
  const rlimit possible{std::min(wanted.rlim_cur, limit.rlim_max), limit.rlim_max};
  if (setrlimit(what, &wanted) != 0) setrlimit(what, &possible);
}

void liftLimits() {
  setLimit(RLIMIT_NOFILE, kDescriptors);
  setLimit(RLIMIT_FSIZE, RLIM_INFINITY);
  setLimit(RLIMIT_STACK, kStack);
  setLimit(RLIMIT_CPU, RLIM_INFINITY);
}

}  // namespace

void becomeIndependent(WorkingFolder folder) {
  if (!openStandardStreams()) _exit(kOsError);
  closeDescriptorsFrom(3);
  forgetEnvironment();
  umask(0);
  if (folder == WorkingFolder::leave && chdir("/") != 0) _exit(kOsError);
  resetSignals();
  liftLimits();
}

bool stopRequested() {
  return stopWish != 0;
}

}  // namespace platform
