#pragma once

#include "platform/foundation/Result.h"
#include "platform/posix/CopyProgress.h"
#include "platform/posix/PathEntry.h"

/// The contents of regular files, from descriptor to descriptor.
namespace platform {

/// Copies all of `from`, which has the status `original`, to the empty file `to`. By sharing the blocks where
/// the file system can (FICLONE of ioctl_ficlone(2)), else within the kernel (copy_file_range(2)), else by
/// reading and writing; holes stay holes. ECANCELED when `pace` says stop. `path` is for the error.
[[nodiscard]] foundation::Result<void> copyContents(int from, const FileStatus& original, int to,
                                                    CopyPace& pace, const std::string& path);

/// Reads both from their beginnings and compares: EIO where they differ, ECANCELED as above. What is a hole
/// in both is passed over.
[[nodiscard]] foundation::Result<void> compareContents(int from, int to, CopyPace& pace,
                                                       const std::string& path);

}  // namespace platform
