#include "platform/linux/LinuxMainThread.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <future>
#include <memory>

#include "platform/SystemConsole.h"
#include "platform/foundation/Exception.h"
#include "platform/foundation/Result.h"

namespace platform {
namespace {

using std::chrono::nanoseconds;

/// How much of a wait is left; without an interval it never ends.
class Remaining {
 public:
  explicit Remaining(std::optional<nanoseconds> interval) : interval_(interval) {}

  [[nodiscard]] std::optional<timespec> left() const {
    if (!interval_) return std::nullopt;
    const auto rest = std::max(*interval_ - passed(), nanoseconds(0));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(rest);
    return timespec{static_cast<std::time_t>(seconds.count()), static_cast<long>((rest - seconds).count())};
  }
  [[nodiscard]] bool isOver() const { return interval_ && passed() >= *interval_; }

 private:
  [[nodiscard]] nanoseconds passed() const { return std::chrono::steady_clock::now() - start_; }

  std::optional<nanoseconds> interval_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Work that nobody waits for has nobody to throw to.
void runUnattended(const std::function<void()>& work) {
  try {
    work();
  } catch (const foundation::Exception& exception) {
    NSLog("*** Uncaught exception in work for the main thread: %@: %@", exception.name(), exception.reason());
  } catch (const std::exception& exception) {
    NSLog("*** Uncaught exception in work for the main thread: %s", exception.what());
  }
}

}  // namespace

LinuxMainThread::LinuxMainThread() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
  if (!wake_) {
    throw foundation::Exception(foundation::kGenericException,
                                foundation::systemError(errno, "eventfd").localizedDescription());
  }
}

bool LinuxMainThread::isCurrent() {
  return ::gettid() == ::getpid();
}

void LinuxMainThread::enqueue(std::function<void()> work) {
  const std::scoped_lock lock(mutex_);
  queue_.push_back(std::move(work));
  ::eventfd_write(wake_.get(), 1);
}

void LinuxMainThread::perform(std::function<void()> work, Wait wait) {
  if (wait == Wait::no) {
    enqueue([task = std::move(work)] { runUnattended(task); });
  } else if (isCurrent()) {
    work();
  } else {
    // Shared, because the main thread is still inside the task when its future becomes ready.
    const auto task = std::make_shared<std::packaged_task<void()>>(std::move(work));
    auto done = task->get_future();
    enqueue([task] { (*task)(); });
    done.get();
  }
}

std::size_t LinuxMainThread::queuedCount() {
  const std::scoped_lock lock(mutex_);
  return queue_.size();
}

std::function<void()> LinuxMainThread::takeFirst() {
  const std::scoped_lock lock(mutex_);
  if (queue_.empty()) return nullptr;
  eventfd_t one = 0;
  ::eventfd_read(wake_.get(), &one);
  auto work = std::move(queue_.front());
  queue_.pop_front();
  return work;
}

void LinuxMainThread::serveQueued() {
  for (std::size_t count = queuedCount(); count > 0; --count) {
    const auto work = takeFirst();
    if (!work) return;
    work();
  }
}

bool LinuxMainThread::serveUntilReadable(int descriptor, std::optional<nanoseconds> interval) {
  const Remaining remaining(interval);
  if (loop_ != nullptr && loop_->runUntilReadable(descriptor, interval)) return true;
  if (loop_ != nullptr && remaining.isOver()) return false;
  // No loop, or that of an application which is about to end: it comes back at once, and what is left of the
  // wait takes place without it.
  while (true) {
    std::array<pollfd, 2> watched{pollfd{wake_.get(), POLLIN, 0}, pollfd{descriptor, POLLIN, 0}};
    const auto left = remaining.left();
    if (::ppoll(watched.data(), watched.size(), left ? &*left : nullptr, nullptr) < 0) continue;
    if (watched[0].revents != 0) serveQueued();
    if (watched[1].revents != 0) return true;
    if (remaining.isOver()) return false;
  }
}

bool LinuxMainThread::serveNext(nanoseconds longestWait) {
  const Remaining remaining(longestWait);
  if (loop_ != nullptr && loop_->runUntilReadable(-1, longestWait)) return true;
  if (loop_ != nullptr && remaining.isOver()) return false;
  pollfd work{wake_.get(), POLLIN, 0};
  const auto left = remaining.left();
  if (::ppoll(&work, 1, &*left, nullptr) <= 0) return false;  // interrupted: the caller looks again
  serveQueued();
  return true;
}

}  // namespace platform
