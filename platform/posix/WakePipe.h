#pragma once

#include "platform/posix/Pipe.h"

namespace platform {

/// A pipe to oneself: raised, it can be seen by poll(2) until it is lowered. Neither end blocks, and no child
/// inherits them. raise() may be called by a signal handler.
class WakePipe {
 public:
  /// Throws foundation::Exception (NSGenericException) where the system gives none.
  WakePipe();

  /// Readable while raised.
  [[nodiscard]] int descriptor() const { return pipe_.reading.get(); }
  void raise() const;
  void lower() const;

 private:
  Pipe pipe_;
};

}  // namespace platform
