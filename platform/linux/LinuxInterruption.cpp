#include "platform/linux/LinuxInterruption.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

namespace platform {
namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

// A signal's handling belongs to the process, not to an object.
std::atomic<int> firstSignal = 0;
// Made by the first defer() and kept: a handler may use it at any time.
std::atomic<int> requestEvent = -1;
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

void note(int signal) {
  int none = 0;
  if (!firstSignal.compare_exchange_strong(none, signal)) return;
  const int before = errno;
  ::eventfd_write(requestEvent, 1);
  errno = before;
}

bool hasHandler(int signal, void (*handler)(int)) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == handler;
}

void setHandler(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
}

}  // namespace

void LinuxInterruption::defer() {
  if (requestEvent < 0) requestEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  sigset_t heard;
  sigemptyset(&heard);
  for (const int signal : kSignals) {
    if (hasHandler(signal, SIG_IGN)) continue;
    setHandler(signal, note);
    sigaddset(&heard, signal);
  }
  // Whoever starts us may have blocked them for its own ends.
  ::pthread_sigmask(SIG_UNBLOCK, &heard, nullptr);
}

std::optional<int> LinuxInterruption::requested() {
  const int signal = firstSignal;
  return signal == 0 ? std::nullopt : std::optional<int>(signal);
}

void LinuxInterruption::deliver() {
  for (const int signal : kSignals) {
    if (hasHandler(signal, note)) setHandler(signal, SIG_DFL);
  }
  eventfd_t count = 0;
  ::eventfd_read(requestEvent, &count);
  if (const int signal = firstSignal.exchange(0); signal != 0) ::raise(signal);
}

int LinuxInterruption::requestDescriptor() const {
  return requestEvent;
}

}  // namespace platform
