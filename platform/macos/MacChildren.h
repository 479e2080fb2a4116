#pragma once

#include "platform/posix/PosixSubprocesses.h"

namespace platform {

/// Starts a child by posix_spawn(2), whose POSIX_SPAWN_CLOEXEC_DEFAULT closes every descriptor that the child
/// is not given by name.
[[nodiscard]] foundation::Result<pid_t> startMacChild(const ChildToStart& child);

}  // namespace platform
