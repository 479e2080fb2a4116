#pragma once

#include <chrono>

#include "helpers/Surroundings.h"
#include "helpers/Tool.h"

namespace helpers {

/// The turn of a tool that changes owners or permissions: nobody waits for such tools to end, so that a later
/// one of the same repair may be started while an earlier one is still in the same tree. A change of owner
/// takes set-ID bits away that a change of permissions has given meanwhile.
///
/// It is a lock (flock(2)) on root's home folder, held until the object or the process is gone, however that
/// ends. Only where root alone may open that folder: anybody who may open it could hold the lock. Where it is
/// open to others, or missing, and for a process that is not root, there are no turns and nobody waits.
class Turn {
 public:
  /// How long a tool waits for those before it. Nobody is kept from work for ever by one that is stuck.
  static constexpr std::chrono::milliseconds kPatience{30'000};

  /// Waits, in the order of coming as the system keeps it. Ends at once where stopRequested(). When the
  /// patience is over the work goes on without the lock, and the report says so; that is no failure. One at a
  /// time in a process: it uses SIGALRM.
  Turn(const Surroundings& surroundings, Report& report, std::chrono::milliseconds patience = kPatience);

  [[nodiscard]] bool isHeld() const { return isHeld_; }

 private:
  platform::UniqueDescriptor folder_;
  bool isHeld_ = false;
};

}  // namespace helpers
