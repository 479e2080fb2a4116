#pragma once

#include <memory>
#include <string>

#include "platform/foundation/Result.h"

namespace platform {

/// A lock that is held; let go of by the destructor, and by the end of the process however it ends.
class FileLock {
 public:
  virtual ~FileLock() = default;
};

/// Locks between programs that change the same file: read, change and replace under one of them loses
/// nothing.
class FileLocks {
 public:
  virtual ~FileLocks() = default;

  /// Takes the lock on a file for this holder alone, without waiting: EWOULDBLOCK while somebody else has it,
  /// in this process or another. The file itself need not be there and may be replaced meanwhile, because the
  /// lock is on an empty file beside it, ".NAME.lock", which is made where it is missing and stays. Made by
  /// root it belongs to the folder's owner, and root follows no link on the way (FileChanges). It binds only
  /// those who ask for it: a program that writes the file without it is not kept out (FileChanges has
  /// replaceUnchanged() to notice it).
  [[nodiscard]] virtual foundation::Result<std::unique_ptr<FileLock>> tryLock(const std::string& path) = 0;
};

}  // namespace platform
