#pragma once

#include <string_view>

#include "platform/posix/PathEntry.h"

namespace platform {

/// Which of a file's rights come along with a copy.
enum class Privileges {
  keep,
  drop  ///< no set-ID bits where root copies, and no attributes of security.* (file capabilities among them)
};

/// What happens where an owner, a group, a mode or an extended attribute cannot be kept.
enum class Fidelity {
  exact,    ///< it is an error
  possible  ///< it stays behind, as on a memory card without modes; set-ID bits do not outlive their owner
};

struct MetadataOptions {
  Privileges privileges = Privileges::keep;
  Fidelity fidelity = Fidelity::exact;
};

/// The mode that a copy is to have whose owner and group are those of the original.
[[nodiscard]] mode_t modeOfCopy(const FileStatus& original, Privileges privileges);

/// Makes the open file or folder `to` like `from`: owner, group, extended attributes (access control lists
/// are among them) and mode. Both must be open for reading. Makes no call for what is so already.
[[nodiscard]] foundation::Result<void> copyOwnerModeAndAttributes(int from, const FileStatus& original,
                                                                  int to, std::string_view path,
                                                                  MetadataOptions options = {});

/// The extended attributes of one open file or folder for another; answers whether there were any. On a Mac
/// its access control list is among them.
[[nodiscard]] foundation::Result<bool> copyAttributes(int from, int to, std::string_view path,
                                                      MetadataOptions options);

/// Whether an errno value only says that the new place cannot hold it, or that it is not this user's to set.
[[nodiscard]] bool isBeyondUs(int reason);

/// Owner and mode for what is only held: links (which have no mode), FIFOs, sockets and devices.
[[nodiscard]] foundation::Result<void> copyOwnerAndMode(const FileStatus& original, int to,
                                                        std::string_view path, MetadataOptions options = {});

/// Sets the times of access and modification; `file` may be only held.
[[nodiscard]] foundation::Result<void> copyTimes(const FileStatus& original, int file, std::string_view path);

/// Sets the mode of what is open or held.
[[nodiscard]] foundation::Result<void> setPermissions(int descriptor, mode_t mode, std::string_view path);

}  // namespace platform
