#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/posix/BlockedSignals.h"
#include "platform/posix/Pipe.h"
#include "platform/posix/RunningChild.h"
#include "platform/posix/SpawnedProgram.h"

namespace platform {
namespace {

using foundation::systemError;

/// What the thread that waits for a child shares with the object that stands for it.
class WatchedChild {
 public:
  /// Nothing is ever written to the pipe: its end says that the child has ended.
  WatchedChild(pid_t child, Pipe end)
      : child_(child), ended_(std::move(end.reading)), alive_(std::move(end.writing)) {}

  void waitForEnd() {
    siginfo_t information{};
    // Left to be waited for, so that its number is nobody else's until the lock is held.
    while (::waitid(P_PID, static_cast<id_t>(child_), &information, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    const std::scoped_lock lock(mutex_);
    int status = 0;
    const pid_t waited = ::waitpid(child_, &status, 0);
    status_ = waited != child_ ? -1 : WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    alive_.reset();
  }
  void terminate() {
    const std::scoped_lock lock(mutex_);
    if (!status_) ::kill(child_, SIGTERM);
  }
  [[nodiscard]] std::optional<int> status() {
    const std::scoped_lock lock(mutex_);
    return status_;
  }
  [[nodiscard]] int descriptor() const { return ended_.get(); }

 private:
  const pid_t child_;
  const UniqueDescriptor ended_;
  std::mutex mutex_;  ///< guards what follows
  UniqueDescriptor alive_;
  std::optional<int> status_;
};

/// Let go of, it leaves its part to the thread, which lasts as long as the child.
class ChildOfAThread final : public RunningChild {
 public:
  explicit ChildOfAThread(std::shared_ptr<WatchedChild> watched) : watched_(std::move(watched)) {}
  std::optional<int> status() override { return watched_->status(); }
  int descriptor() const override { return watched_->descriptor(); }
  void terminate() override { watched_->terminate(); }

 private:
  const std::shared_ptr<WatchedChild> watched_;
};

}  // namespace

foundation::Result<std::unique_ptr<RunningChild>> watchByThread(pid_t child) {
  Pipe end = makePipe();
  if (!end.reading) {
    const auto reason = systemError(errno, "pipe");
    endProgram(child);
    return reason;
  }
  const auto watched = std::make_shared<WatchedChild>(child, std::move(end));
  try {
    const BlockedSignals guard;
    std::thread([watched] { watched->waitForEnd(); }).detach();
  } catch (const std::system_error& error) {
    endProgram(child);
    return systemError(error.code().value(), "thread");
  }
  return std::unique_ptr<RunningChild>(std::make_unique<ChildOfAThread>(watched));
}

}  // namespace platform
