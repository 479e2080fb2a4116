#pragma once

#include <string>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

/// Folders opened for a change by a process that may be root, in places that belong to somebody else.
namespace platform {

/// Opens a folder for openat(2) and its kin. For a process that is not root links are followed as usual. For
/// root a link on the way is followed only where root alone could have put it: when root owns both the link
/// and the folder it lies in, and nobody else may write that folder ("/Users" may lead to "/home", nothing
/// inside a home folder leads anywhere). ELOOP for any other link.
[[nodiscard]] foundation::Result<UniqueDescriptor> openGuardedFolder(const std::string& path);

/// Opens a trash folder in an existing folder, making it with mode 0700 when it is missing. It must belong to
/// the owner of the folder it lies in (for a process that is not root: to the process's user), who also
/// becomes the owner of a new one; EPERM otherwise, ENOTDIR or ELOOP when something else is there.
[[nodiscard]] foundation::Result<UniqueDescriptor> openTrashFolder(const std::string& path);

}  // namespace platform
