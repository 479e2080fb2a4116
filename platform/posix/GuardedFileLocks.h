#pragma once

#include "platform/FileLocks.h"

namespace platform {

/// Locks by flock(2) on a file of their own, mode 0600 less the umask. A lock file is never removed: whoever
/// did would take it from under one who has just opened it. On a file system of the network it is as good as
/// the kernel makes it there (flock(2), NFS).
class GuardedFileLocks : public FileLocks {
 public:
  foundation::Result<std::unique_ptr<FileLock>> tryLock(const std::string& path) override;
};

}  // namespace platform
