#pragma once

#include <cstddef>

#include "platform/posix/RunningChild.h"

/// What this system has for children beyond POSIX.
namespace platform {

/// By a pidfd (pidfd_open(2)); what is let go of while it runs goes to the ChildReaper.
[[nodiscard]] foundation::Result<std::unique_ptr<RunningChild>> watchByDescriptor(pid_t child);

/// Has a pipe hold that many bytes (F_SETPIPE_SZ); answers whether it does. A user may have all the room used
/// up that users get.
[[nodiscard]] bool makePipeHold(int pipe, std::size_t bytes);

/// Has memory come, where nobody has touched it yet, in huge pages (MADV_HUGEPAGE of madvise(2)), where the
/// system has any. Less than any allocator keeps for itself when it is given back is left as it is.
void useLargePages(char* memory, std::size_t bytes);

}  // namespace platform
