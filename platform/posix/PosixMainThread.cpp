#include "platform/posix/PosixMainThread.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <climits>
#include <future>
#include <memory>
#include <thread>

#include "platform/SystemConsole.h"
#include "platform/foundation/Exception.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

const std::thread::id mainThreadID = std::this_thread::get_id();

/// How much of a wait is left; without an interval it never ends.
class Remaining {
 public:
  explicit Remaining(std::optional<nanoseconds> interval) : interval_(interval) {}

  /// For poll(2), which counts milliseconds: rather a little longer, so that a wait never ends early.
  [[nodiscard]] int left() const {
    if (!interval_) return -1;
    const auto rest = std::chrono::ceil<milliseconds>(*interval_ - passed());
    return static_cast<int>(std::clamp<milliseconds::rep>(rest.count(), 0, INT_MAX));
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

bool PosixMainThread::isCurrent() {
  return std::this_thread::get_id() == mainThreadID;
}

void PosixMainThread::enqueue(std::function<void()> work) {
  const std::scoped_lock lock(mutex_);
  queue_.push_back(std::move(work));
  if (queue_.size() == 1) wake_.raise();
}

void PosixMainThread::perform(std::function<void()> work, Wait wait) {
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

std::size_t PosixMainThread::queuedCount() {
  const std::scoped_lock lock(mutex_);
  return queue_.size();
}

std::function<void()> PosixMainThread::takeFirst() {
  const std::scoped_lock lock(mutex_);
  if (queue_.empty()) return nullptr;
  auto work = std::move(queue_.front());
  queue_.pop_front();
  if (queue_.empty()) wake_.lower();
  return work;
}

void PosixMainThread::serveQueued() {
  for (std::size_t count = queuedCount(); count > 0; --count) {
    const auto work = takeFirst();
    if (!work) return;
    work();
  }
}

bool PosixMainThread::serveUntilReadable(int descriptor, std::optional<nanoseconds> interval) {
  const Remaining remaining(interval);
  if (loop_ != nullptr && loop_->runUntilReadable(descriptor, interval)) return true;
  if (loop_ != nullptr && remaining.isOver()) return false;
  // No loop, or that of an application which is about to end: it comes back at once, and what is left of the
  // wait takes place without it.
  while (true) {
    std::array<pollfd, 2> watched{pollfd{workDescriptor(), POLLIN, 0}, pollfd{descriptor, POLLIN, 0}};
    if (::poll(watched.data(), watched.size(), remaining.left()) < 0) continue;
    if (watched[0].revents != 0) serveQueued();
    if (watched[1].revents != 0) return true;
    if (remaining.isOver()) return false;
  }
}

bool PosixMainThread::serveNext(nanoseconds longestWait) {
  const Remaining remaining(longestWait);
  if (loop_ != nullptr && loop_->runUntilReadable(-1, longestWait)) return true;
  if (loop_ != nullptr && remaining.isOver()) return false;
  pollfd work{workDescriptor(), POLLIN, 0};
  if (::poll(&work, 1, remaining.left()) <= 0) return false;  // interrupted: the caller looks again
  serveQueued();
  return true;
}

}  // namespace platform
