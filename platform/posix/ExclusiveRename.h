#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/Result.h"

namespace platform {

/// Whether to use the flags of those calls; `avoid` takes the way of a file system that lacks them.
enum class RenameFlags { use, avoid };

/// Renames without ever replacing anything: EEXIST where the new name is taken.
///
/// renameat2(2) with RENAME_NOREPLACE, on a Mac renameatx_np(2) with RENAME_EXCL. Where the file system lacks
/// it: a folder is renamed onto an empty folder that is made for it, which only succeeds while that is still
/// empty; anything else gets the new name by linkat(2) and then loses the old one, so that at every moment it
/// has at least one name; where there are no hard links either, it is renamed onto an empty file made for it.
[[nodiscard]] foundation::Result<void> renameWithoutReplacing(int fromFolder, const std::string& fromName,
                                                              int toFolder, const std::string& toName,
                                                              std::string_view path,
                                                              RenameFlags flags = RenameFlags::use);

}  // namespace platform
