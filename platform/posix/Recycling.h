#pragma once

#include <string>
#include <vector>

#include "platform/foundation/Result.h"

namespace platform {

/// The name that an item gets in the trash at a further attempt: "a.txt", then "a 2.txt", "a 3.txt", ...
/// At most 255 bytes: a longer one loses whole characters before the number.
[[nodiscard]] std::string nameInTrash(const std::string& name, int attempt);

/// Moves the named items of a folder into a trash folder. Each name is one path component (EINVAL otherwise);
/// a missing item is ENOENT. Nothing in the trash is ever replaced, also by two processes at once. On the
/// same file system it is one rename(2); to another one the item is copied into a folder that only this
/// process can enter, read back, renamed into the trash and then removed at its source (TreeCopy.h): a copy
/// that fails leaves the source whole and nothing in the trash.
///
/// The first failure ends it; what was moved before stays moved. As root both folders may belong to an
/// attacker; GuardedFolders.h says how they are opened.
foundation::Result<void> recycleItems(const std::string& sourceFolder, const std::string& trashFolder,
                                      const std::vector<std::string>& names);

}  // namespace platform
