#pragma once

#include "platform/ProcessInformation.h"

namespace platform {

/// SIGTERM, SIGINT and SIGHUP by sigaction(2), for any system; system calls under way are started again.
/// defer() also unblocks them in the calling thread, where the program was started with them blocked.
class PosixInterruption : public Interruption {
 public:
  void defer() override;
  std::optional<int> requested() override;
  void deliver() override;

  /// Readable from the first signal noted to its delivery; -1 before the first defer(), and where the system
  /// gives no descriptors.
  [[nodiscard]] int requestDescriptor() const;
};

}  // namespace platform
