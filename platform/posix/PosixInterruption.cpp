#include "platform/posix/PosixInterruption.h"

#include <array>
#include <atomic>
#include <csignal>

#include "platform/foundation/Exception.h"
#include "platform/posix/WakePipe.h"

namespace platform {
namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

// A signal's handling belongs to the process, not to an object.
std::atomic<int> firstSignal = 0;
// Made by the first defer() and kept: a handler may use it at any time.
std::atomic<const WakePipe*> request = nullptr;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<const WakePipe*>::is_always_lock_free,
              "used by a signal handler");

void note(int signal) {
  int none = 0;
  if (!firstSignal.compare_exchange_strong(none, signal)) return;
  if (const WakePipe* const pipe = request) pipe->raise();
}

/// Without descriptors to be had signals are noted all the same; nobody is woken by them then.
const WakePipe* makeRequest() {
  try {
    return new WakePipe();
  } catch (const foundation::Exception&) {
    return nullptr;
  }
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

void PosixInterruption::defer() {
  if (request == nullptr) request = makeRequest();
  sigset_t heard{};
  sigemptyset(&heard);
  for (const int signal : kSignals) {
    if (hasHandler(signal, SIG_IGN)) continue;
    setHandler(signal, note);
    sigaddset(&heard, signal);
  }
  // Whoever starts us may have blocked them for its own ends.
  ::pthread_sigmask(SIG_UNBLOCK, &heard, nullptr);
}

std::optional<int> PosixInterruption::requested() {
  const int signal = firstSignal;
  return signal == 0 ? std::nullopt : std::optional<int>(signal);
}

void PosixInterruption::deliver() {
  for (const int signal : kSignals) {
    if (hasHandler(signal, note)) setHandler(signal, SIG_DFL);
  }
  if (const WakePipe* const pipe = request) pipe->lower();
  if (const int signal = firstSignal.exchange(0); signal != 0) ::raise(signal);
}

int PosixInterruption::requestDescriptor() const {
  const WakePipe* const pipe = request;
  return pipe == nullptr ? -1 : pipe->descriptor();
}

}  // namespace platform
