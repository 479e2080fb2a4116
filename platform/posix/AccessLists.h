#pragma once

#include <sys/types.h>

/// Access lists: rights to an item for accounts of the list's own choosing (acl(5); on a Mac the extended
/// ones of acl(3)).
namespace platform {

/// Whether a list may let somebody write to what is open or held whom its mode does not; yes where that
/// cannot be known.
///
/// A list of Linux gives nobody more than the mode gives to the group, so that nothing is asked where that
/// may not write. A Mac's stands beside the mode, and every entry of it that allows anything counts; entries
/// that deny, as the system's own folders have them, do not.
[[nodiscard]] bool mayBeWrittenByList(int held, mode_t mode);

/// Takes the lists away that an open folder has inherited.
void removeAccessLists(int folder);

}  // namespace platform
