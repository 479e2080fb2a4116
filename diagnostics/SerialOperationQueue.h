#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "diagnostics/QueuedOperation.h"

/// Performs operations one at a time, in the order they were added, on a thread of its own that is started
/// with the first one. May be used from any thread.
///
/// Where the system grants no thread, operations are performed by the thread that adds them: still one at a
/// time and in order.
class SerialOperationQueue {
 public:
  using Operation = std::function<void()>;
  /// Starts a thread that runs the work; throws std::system_error when there is none to be had.
  using ThreadStarter = std::function<std::thread(Operation work)>;

  SerialOperationQueue();
  explicit SerialOperationQueue(ThreadStarter startThread);

  /// Performs what is waiting, then ends the thread. REQUIRES that no operation of this queue destroys it. A
  /// queue that lives until the process ends needs no destruction: exiting does not wait for its thread, so
  /// call waitUntilAllOperationsAreFinished() first where the operations matter.
  ~SerialOperationQueue();
  SerialOperationQueue(const SerialOperationQueue&) = delete;
  SerialOperationQueue& operator=(const SerialOperationQueue&) = delete;

  /// Adds an operation, which must not throw. Those that an operation of this queue adds come next, in their
  /// order and before all that wait.
  template <typename Work>
  void addOperation(Work&& work) {
    add(QueuedOperation(std::forward<Work>(work)));
  }

  /// Blocks until nothing is being performed and nothing is waiting, operations included that are added
  /// meanwhile. Called by an operation of this queue it returns at once: that one cannot finish before.
  void waitUntilAllOperationsAreFinished();

 private:
  using Lock = std::unique_lock<std::mutex>;

  void add(QueuedOperation operation);
  void startThreadIfNeeded();
  void runThread();
  void performWaiting(Lock& lock);
  void performTaken();
  [[nodiscard]] QueuedOperation takeNext();

  const ThreadStarter startThread_;
  std::mutex mutex_;
  std::condition_variable added_;
  std::condition_variable finished_;
  std::vector<QueuedOperation> waiting_;
  std::thread::id performer_;  ///< the thread that performs operations now; none when idle
  /// Taken from those that wait all at once, so that whoever adds seldom meets the performer at the lock.
  /// The performer's own, with what follows it.
  std::vector<QueuedOperation> taken_;
  std::size_t next_ = 0;               ///< the first of them that is not performed yet
  std::deque<QueuedOperation> ahead_;  ///< what operations have added; performed before the next of them
  std::size_t addedByOperation_ = 0;   ///< how many the one under way has added; they are the first of those
  bool ends_ = false;
  std::thread thread_;
};
