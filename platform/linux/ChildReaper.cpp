#include "platform/linux/ChildReaper.h"

#include <sys/epoll.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <thread>

#include "platform/posix/BlockedSignals.h"

namespace platform {
namespace {

enum class Kind : std::uint32_t { child, pipe };

std::uint64_t marked(int descriptor, Kind kind) {
  return static_cast<std::uint64_t>(kind) << 32U | static_cast<std::uint32_t>(descriptor);
}

/// Answers whether that was its end.
bool collect(int pidfd) {
  siginfo_t ignored{};
  ::waitid(P_PIDFD, static_cast<id_t>(pidfd), &ignored, WEXITED);
  return true;
}

bool readOnce(int pipe) {
  static std::array<char, 64UL << 10> buffer{};
  const ssize_t count = ::read(pipe, buffer.data(), buffer.size());
  return count == 0 || (count < 0 && errno != EINTR);
}

void serveEndlessly(int epoll) {
  while (true) {
    epoll_event event{};
    if (::epoll_wait(epoll, &event, 1, -1) != 1) continue;
    const auto descriptor = static_cast<int>(event.data.u64 & 0xffffffffU);
    const auto kind = static_cast<Kind>(event.data.u64 >> 32U);
    if (!(kind == Kind::child ? collect(descriptor) : readOnce(descriptor))) continue;
    // Closing would not take it out of the set while a child that is just being started still has a copy, and
    // its number would by then stand for another child.
    ::epoll_ctl(epoll, EPOLL_CTL_DEL, descriptor, nullptr);
    ::close(descriptor);
  }
}

/// The set that the thread watches, or -1.
int startThread() noexcept {
  UniqueDescriptor epoll(::epoll_create1(EPOLL_CLOEXEC));
  if (!epoll) return -1;
  try {
    const BlockedSignals guard;
    std::thread(serveEndlessly, epoll.get()).detach();
    return epoll.release();
  } catch (const std::system_error&) {
    return -1;
  }
}

void handOver(UniqueDescriptor descriptor, Kind kind) noexcept {
  static const int epoll = startThread();
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = marked(descriptor.get(), kind);
  if (epoll >= 0 && ::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor.get(), &event) == 0) {
    // The thread closes it; it may already have done so.
    static_cast<void>(descriptor.release());
  }
}

}  // namespace

void reapWhenEnded(UniqueDescriptor pidfd) noexcept {
  handOver(std::move(pidfd), Kind::child);
}

void readToTheEnd(UniqueDescriptor pipe) noexcept {
  handOver(std::move(pipe), Kind::pipe);
}

}  // namespace platform
