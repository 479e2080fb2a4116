#pragma once

#include <string>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

/// Folders opened for a change by a process that may be root, in places that belong to somebody else.
namespace platform {

/// Opens a folder for openat(2) and its kin. For a process that is not root links are followed as usual. For
/// root a link on the way is followed only where root alone could have put it: root owns both the link and
/// the folder it lies in, and neither that folder nor any above it can be written by others (by a group only
/// where the sticky bit is set, as "/" is on some systems). "/Users" may lead to "/home"; nothing inside a
/// home folder leads anywhere. ELOOP for any other link, and for a link that a relative path leads through.
///
/// A folder that may be searched and not read is held where the system can (HeldEntries.h): it can then not
/// be listed nor synchronised.
[[nodiscard]] foundation::Result<UniqueDescriptor> openGuardedFolder(const std::string& path);

/// A folder held open, so that what is done in it stays in it whatever becomes of its path meanwhile, and the
/// name of an item in it.
struct GuardedPlace {
  UniqueDescriptor folder;
  std::string name;
};

/// Opens the folder that an item lies in, by openGuardedFolder(); the item itself may be missing. The name is
/// what lastPathComponent() says: it may be "/", "." or "..", and is empty for an empty path, whose folder is
/// the current one. The error is the folder's, with the path of the item.
[[nodiscard]] foundation::Result<GuardedPlace> openGuardedPlace(const std::string& path);

/// Makes a folder and those above it that are missing, whatever the umask such that others cannot change
/// them. Links on the way are followed: for places that lie in nobody else's hands. Answers 0 or an errno
/// value; 0 also where something else than a folder is there already, which shows when it is opened.
[[nodiscard]] int makeFolders(const std::string& path);

/// Makes a folder in an open one, with `mode` less the umask. Made by root in a folder of somebody else's, it
/// belongs to that folder's owner and group, and is made with the owner's rights: there is no moment at which
/// it is root's. Answers 0 or an errno value: EEXIST where the name is taken.
[[nodiscard]] int makeFolderForOwner(int parent, const std::string& name, mode_t mode);

/// Opens a trash folder in an existing folder, making it with mode 0700 when it is missing. It must belong to
/// the owner of the folder it lies in (for a process that is not root: to the process's user), who also
/// becomes the owner of a new one; EPERM otherwise, ENOTDIR or ELOOP when something else is there.
[[nodiscard]] foundation::Result<UniqueDescriptor> openTrashFolder(const std::string& path);

}  // namespace platform
