#pragma once

#include <string_view>

#include "helpers/Surroundings.h"

namespace helpers {

/// Which of a file's rights come along.
enum class CopiedRights {
  all,
  withoutPrivileges  ///< no set-ID bits and no attributes of security.*, among which file capabilities are
};

/// Makes the open file or folder `to` like `from`: owner, group, extended attributes (access control lists
/// are among them) and permissions. Both must be open for more than O_PATH.
[[nodiscard]] foundation::Result<void> copyOwnerModeAndAttributes(int from, const FileStatus& fromStatus,
                                                                  int to, std::string_view path,
                                                                  CopiedRights rights = CopiedRights::all);

/// Sets the modification time of an entry, and the access time to the same.
[[nodiscard]] foundation::Result<void> setModified(int folder, const std::string& name,
                                                   const FileStatus& status, std::string_view path);

}  // namespace helpers
