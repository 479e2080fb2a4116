#pragma once

#include <cstdint>
#include <string>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

/// Regular files opened in places where anything may lie.
namespace platform {

/// Opens a regular file by openat(2), without blocking; whatever else is there is refused without being
/// opened (EINVAL; ELOOP for a link where `flags` hold O_NOFOLLOW). `path` is for the error.
[[nodiscard]] foundation::Result<UniqueDescriptor> openRegularFile(int folder, const std::string& name,
                                                                   int flags, const std::string& path);

/// The whole content of an open file of at most `limit` bytes; EFBIG beyond it.
[[nodiscard]] foundation::Result<std::string> readWholeFile(int file, std::uint64_t limit,
                                                            const std::string& path);

}  // namespace platform
