#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "platform/foundation/Result.h"
#include "platform/posix/CopyProgress.h"
#include "platform/posix/PathEntry.h"

/// The contents of regular files, by descriptors.
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

/// Reads less than asked for only at the file's end; -1 and errno where it cannot.
[[nodiscard]] ssize_t readAt(int file, char* data, std::size_t length, off_t at);

/// Writes all; errno says why it cannot.
[[nodiscard]] bool writeAt(int file, const char* data, std::size_t length, off_t at);

}  // namespace platform
