#pragma once

#include <sys/types.h>

#include <array>
#include <ctime>
#include <string>

#include "platform/posix/PathEntry.h"
#include "platform/posix/UniqueDescriptor.h"

/// Entries of folders that are held by descriptors and not opened for anything: the calls below PathEntry.h
/// that each system has in a form of its own. On failure errno says why.
///
/// On Linux any entry can be held (O_PATH), for which the right to search its folder is enough. A Mac holds
/// regular files, folders and links by a descriptor for events (O_EVTONLY, O_SYMLINK), which asks for the
/// right to read; a FIFO, a socket or a device would be opened by it and is refused there (ENOTSUP).
namespace platform {

/// Holds one entry of an open folder, or what it leads to where that is asked for.
[[nodiscard]] UniqueDescriptor holdEntry(int folder, const std::string& name, LastLink lastLink,
                                         int flags = 0);

/// Holds a folder, every link on the way followed.
[[nodiscard]] UniqueDescriptor holdFolder(int folder, const std::string& path);

/// Opens anew what is held, with the rights of this moment: the same item or nothing.
[[nodiscard]] UniqueDescriptor openHeld(int held, int flags);

/// Owner and group of what is held, a link itself; -1 leaves one as it is. A file loses its set-ID bits with
/// that, at no moment after it; where the system leaves them to root the mode is set along with the owner.
/// Answers 0 or an errno value.
[[nodiscard]] int setOwner(int held, uid_t owner, gid_t group);

/// Times of access and modification of what is open or held. Answers 0 or an errno value.
[[nodiscard]] int setTimes(int held, const std::array<timespec, 2>& times);

}  // namespace platform
