#pragma once

#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// A descriptor above the three standard ones, also in a process that was started with one of them closed.
[[nodiscard]] UniqueDescriptor raisedDescriptor(UniqueDescriptor descriptor);

struct Pipe {
  UniqueDescriptor reading;
  UniqueDescriptor writing;
};

/// A new pipe. Neither end is one of the three standard descriptors, and no child inherits them. Both are
/// empty on failure, and errno says why.
[[nodiscard]] Pipe makePipe();

}  // namespace platform
