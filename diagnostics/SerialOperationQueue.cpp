#include "diagnostics/SerialOperationQueue.h"

#include <system_error>
#include <utility>

namespace {

/// Room for so many operations stays for the next ones.
constexpr std::size_t kMostKept = 4096;

}  // namespace

SerialOperationQueue::SerialOperationQueue()
    : SerialOperationQueue([](Operation work) { return std::thread(std::move(work)); }) {}

SerialOperationQueue::SerialOperationQueue(ThreadStarter startThread)
    : startThread_(std::move(startThread)) {}

SerialOperationQueue::~SerialOperationQueue() {
  waitUntilAllOperationsAreFinished();
  {
    const std::scoped_lock lock(mutex_);
    ends_ = true;
  }
  added_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void SerialOperationQueue::add(QueuedOperation operation) {
  Lock lock(mutex_);
  if (performer_ == std::this_thread::get_id()) {
    const auto place = static_cast<std::ptrdiff_t>(addedByOperation_++);
    ahead_.insert(ahead_.begin() + place, std::move(operation));
    return;  // whoever performs this one goes on to it
  }
  const bool isFirst = waiting_.empty();
  waiting_.push_back(std::move(operation));
  startThreadIfNeeded();
  if (!thread_.joinable()) {
    performWaiting(lock);
  } else if (isFirst && performer_ == std::thread::id()) {
    added_.notify_one();  // behind others the thread is on its way for them
  }
}

void SerialOperationQueue::waitUntilAllOperationsAreFinished() {
  Lock lock(mutex_);
  if (performer_ == std::this_thread::get_id()) return;
  finished_.wait(lock, [this] { return waiting_.empty() && performer_ == std::thread::id(); });
}

void SerialOperationQueue::startThreadIfNeeded() {
  if (thread_.joinable()) return;
  try {
    thread_ = startThread_([this] { runThread(); });
  } catch (const std::system_error&) {
    // The next operation tries again.
  }
}

void SerialOperationQueue::runThread() {
  Lock lock(mutex_);
  while (true) {
    // An operation may still be under way on a thread that added one before there was this thread.
    added_.wait(lock, [this] { return ends_ || (!waiting_.empty() && performer_ == std::thread::id()); });
    if (ends_) return;
    performWaiting(lock);
  }
}

/// Those that an operation adds come before the next one.
QueuedOperation SerialOperationQueue::takeNext() {
  if (ahead_.empty()) return std::move(taken_[next_++]);
  QueuedOperation operation = std::move(ahead_.front());
  ahead_.pop_front();
  return operation;
}

void SerialOperationQueue::performTaken() {
  for (next_ = 0; !ahead_.empty() || next_ < taken_.size();) {
    QueuedOperation operation = takeNext();
    addedByOperation_ = 0;
    operation.perform();
  }
  taken_.clear();
  if (taken_.capacity() > kMostKept) taken_.shrink_to_fit();
}

void SerialOperationQueue::performWaiting(Lock& lock) {
  if (performer_ != std::thread::id()) return;  // whoever performs now goes on to the new ones
  while (!waiting_.empty()) {
    performer_ = std::this_thread::get_id();
    taken_.swap(waiting_);
    lock.unlock();
    performTaken();
    lock.lock();
    performer_ = std::thread::id();
  }
  finished_.notify_all();
}
