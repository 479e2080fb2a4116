#include "platform/linux/ChildReaper.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/wait.h>

#include <csignal>
#include <system_error>
#include <thread>

namespace platform {
namespace {

void reapEndlessly(int epoll) {
  while (true) {
    epoll_event event{};
    if (::epoll_wait(epoll, &event, 1, -1) != 1) continue;
    siginfo_t ignored{};
    ::waitid(P_PIDFD, static_cast<id_t>(event.data.fd), &ignored, WEXITED);
    // Closing would not take it out of the set while a child that is just being started still has a copy, and
    // its number would by then stand for another child.
    ::epoll_ctl(epoll, EPOLL_CTL_DEL, event.data.fd, nullptr);
    ::close(event.data.fd);
  }
}

/// Every signal belongs to the threads that were there before.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

/// The set that the thread watches, or -1.
int startReaper() noexcept {
  UniqueDescriptor epoll(::epoll_create1(EPOLL_CLOEXEC));
  if (!epoll) return -1;
  try {
    const SignalsBlocked guard;
    std::thread(reapEndlessly, epoll.get()).detach();
    return epoll.release();
  } catch (const std::system_error&) {
    return -1;
  }
}

}  // namespace

void reapWhenEnded(UniqueDescriptor pidfd) noexcept {
  static const int epoll = startReaper();
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = pidfd.get();
  if (epoll >= 0 && ::epoll_ctl(epoll, EPOLL_CTL_ADD, pidfd.get(), &event) == 0) {
    // The thread closes it; it may already have done so.
    static_cast<void>(pidfd.release());
  }
}

}  // namespace platform
