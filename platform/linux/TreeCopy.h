#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/foundation/Result.h"

/// Copying and removing items of one file system by descriptors, as cp -a does, for a move to another one.
/// No link is followed, no other file system is entered.
namespace platform {

/// An item that has been copied, as it was when it was read.
struct CopiedItem {
  std::string name;
  struct stat status {};
  std::vector<CopiedItem> children = {};
};

/// Copies a file, link, FIFO, socket or whole folder to the same name in another folder, where nothing of
/// that name may be. Kept are contents, owner, mode, times, extended attributes (with the access control
/// lists) and hard links among the copied. The contents are on the disk and have been read back and compared
/// when this answers. A file that changes meanwhile is an error (EBUSY), as are devices (ENOTSUP), which the
/// source's mount may have disarmed, and a mounted file system (EXDEV).
///
/// As root the set-id bits and the file capabilities of programs are dropped: the source may be a medium
/// whose mount disarms them.
///
/// `destination` must be a folder that nobody but the process can write. After an error a part of the copy
/// may be there.
[[nodiscard]] foundation::Result<CopiedItem> copyItem(int sourceFolder, const std::string& name,
                                                      int destination);

/// Removes what was copied, and only that: an item that is another one now, a file that has changed, and a
/// folder that has got further entries stay, as an error (EBUSY, ENOTEMPTY).
foundation::Result<void> removeCopied(int folder, const CopiedItem& item);

/// Removes an item and all below it.
foundation::Result<void> removeItem(int folder, const std::string& name);

}  // namespace platform
