#include "diagnostics/SerialOperationQueue.h"

#include <system_error>
#include <utility>

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

void SerialOperationQueue::addOperation(Operation operation) {
  Lock lock(mutex_);
  if (performer_ == std::this_thread::get_id()) {
    waiting_.insert(waiting_.begin() + addedByOperation_++, std::move(operation));
  } else {
    waiting_.push_back(std::move(operation));
  }
  startThreadIfNeeded();
  if (thread_.joinable()) {
    added_.notify_one();
  } else {
    performWaiting(lock);
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

void SerialOperationQueue::performWaiting(Lock& lock) {
  if (performer_ != std::thread::id()) return;  // whoever performs now goes on to the new ones
  while (!waiting_.empty()) {
    Operation operation = std::move(waiting_.front());
    waiting_.pop_front();
    performer_ = std::this_thread::get_id();
    addedByOperation_ = 0;
    lock.unlock();
    operation();
    operation = nullptr;
    lock.lock();
    performer_ = std::thread::id();
  }
  finished_.notify_all();
}
