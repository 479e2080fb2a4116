#pragma once

#include <deque>
#include <mutex>

#include "platform/MainThread.h"
#include "platform/WindowModule.h"
#include "platform/posix/WakePipe.h"

namespace platform {

/// The thread that the program's static objects are made on; a queue, and a pipe that is readable while
/// something is queued. Work that nobody waits for and that throws is reported on the system console and
/// dropped. By POSIX calls alone, for any system: poll(2) counts milliseconds, and a wait lasts rather a
/// little longer than its interval.
class PosixMainThread : public MainThread {
 public:
  bool isCurrent() override;
  void perform(std::function<void()> work, Wait wait) override;
  bool serveUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) override;

  /// Readable while work is queued.
  [[nodiscard]] int workDescriptor() const { return wake_.descriptor(); }

  /// REQUIRES isCurrent(). Runs what is queued now; what that work queues in turn waits for the next call.
  void serveQueued();

  /// REQUIRES isCurrent(). Waits for queued work, at most that long, and runs what is queued then; answers
  /// whether there was any. An event loop gets the whole time, for its own events too.
  bool serveNext(std::chrono::nanoseconds longestWait);

  /// REQUIRES isCurrent(). Hands waits on the main thread to an event loop, or with nullptr back to poll(2).
  /// A wait that the loop ends too early, as one does whose application is about to end, is brought to its
  /// end with poll(2).
  void setEventLoop(EventLoop* loop) { loop_ = loop; }

 private:
  void enqueue(std::function<void()> work);
  std::function<void()> takeFirst();
  [[nodiscard]] std::size_t queuedCount();

  WakePipe wake_;  ///< raised while the queue is not empty
  EventLoop* loop_ = nullptr;
  std::mutex mutex_;
  std::deque<std::function<void()>> queue_;
};

}  // namespace platform
