#pragma once

#include <string>

#include "platform/foundation/Result.h"
#include "platform/posix/TreeCopy.h"

/// What cp, mv, rm and mkdir do, in the one form each in which the program calls them, for paths in folders
/// that a user controls.
///
/// The way to an item is opened as GuardedFolders.h says: root follows a link only where root alone can have
/// put it (ELOOP for any other), and works by descriptors from there. What is exchanged meanwhile is met as
/// what it is, never followed. Folders of any size, for rm of any depth too, take little memory and few
/// descriptors; cp and mv to another file system refuse folders deeper than 256 (ENAMETOOLONG), and where
/// descriptors are too few for a depth (EMFILE), and leave nothing of the copy then. A process that is asked
/// to stop (IndependentProcess.h) ends between two entries: ECANCELED.
namespace platform {

/// rm -R -f: removes an item and all below it, except for what is mounted there (EXDEV). What is not there is
/// removed already. EINVAL for "/", "." and "..".
[[nodiscard]] foundation::Result<void> removePath(const std::string& path);

/// mkdir -p: makes a folder, and those above it that are missing, with mode 0755 less the umask. They are
/// this process's user's, whoever owns the folder they are made in. "." and ".." on the way are what they are
/// when the folder before them has been made.
[[nodiscard]] foundation::Result<void> makePath(const std::string& path);

/// mv -f: moves an item into `to` where that is a folder, else to `to` itself, in place of what is there; of
/// folders only an empty one is replaced (ENOTEMPTY). On another file system it becomes a copy that is
/// compared before the original goes (TreeCopy.h): without set-ID bits, and no device moves. `options` are
/// given by tests alone, which have the record of a small move in a file.
[[nodiscard]] foundation::Result<void> movePath(const std::string& from, const std::string& to,
                                                const CopyOptions& options = optionsForMoving());

/// cp -f -p -R: copies an item with its attributes, links as links, into `to` where that is a folder, else to
/// `to` itself. A folder that is there already is added to, and keeps what the copy has no name for; one of
/// another owner's keeps its attributes, too. A file that is there is replaced, not written to, so that its
/// further names keep the old content. A folder never replaces anything else (ENOTDIR), nor anything else a
/// folder (EISDIR). Where the copy is added to a folder, what cannot be copied is passed over; what is not
/// there yet comes whole or not at all. The first failure is the answer.
[[nodiscard]] foundation::Result<void> copyPath(const std::string& from, const std::string& to);

}  // namespace platform
