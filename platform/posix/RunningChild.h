#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>

#include "platform/foundation/Result.h"

namespace platform {

/// A direct child from its start to its end. When it is let go of while the child runs, the child is still
/// collected when it ends, so that no zombie is left, and no child of others ever is. Nobody signals a
/// process that has got its number since. May be used by any thread.
class RunningChild {
 public:
  virtual ~RunningChild() = default;

  /// The exit status, or the number of the signal that ended it; nullopt while it runs. -1 where somebody
  /// else took the status.
  [[nodiscard]] virtual std::optional<int> status() = 0;

  /// Readable, or at its end, once the child has ended; the same as long as this object lives.
  [[nodiscard]] virtual int descriptor() const = 0;

  /// Sends SIGTERM. Nothing happens when it has ended.
  virtual void terminate() = 0;
};

/// Watches a child that was just started and that nobody has waited for. A child that cannot be watched must
/// not run on unseen: it is ended and collected then, and the system's reason comes back.
using WatchChild = foundation::Result<std::unique_ptr<RunningChild>>(pid_t child);

/// By a thread for each child, which waits for it (waitid(2), waitpid(2)) and hears no signals: for any
/// system.
[[nodiscard]] foundation::Result<std::unique_ptr<RunningChild>> watchByThread(pid_t child);

}  // namespace platform
