#pragma once

#include "platform/Files.h"
#include "platform/posix/PosixFiles.h"

namespace platform {

/// File queries by POSIX calls; the file itself is read through folders that are entered as GuardedFolders.h
/// says.
///
/// Only readFileItself() is guarded: it is for root's reading of what it copies into a user's file. Where
/// readFile() leads root through a user's link, no more comes back to the user than whether a switch is on.
/// Root does not read a file in this way that has further names (EMLINK): one of them may be a secret.
class GuardedFileQueries : public PosixFileQueries {
 public:
  foundation::Result<std::string> readFileItself(const std::string& path, std::uint64_t limit) override;
  bool isOutOfOthersReach(const std::string& path) override;
};

/// File changes by descriptors.
///
/// They may be made by root in a folder that a user controls. Root follows a link on the way only where root
/// alone could have put it (ELOOP for any other), and works by descriptors from there: GuardedFolders.h. New
/// folders and files that root makes in somebody else's folder belong to that folder's owner and group.
///
/// What is moved to another file system is copied with owner, mode, times, extended attributes and hard links
/// into a private folder, synchronised and compared, before it appears under its name; what TreeCopy.h says
/// of devices and set-id bits holds here. Writing atomically replaces a link rather than what it leads to
/// (replaceUnchanged() refuses one), and does not take set-id bits over. A process that may not give the new
/// file to the old one's owner keeps it as its own; where it may not keep the group either, the group gets no
/// more rights than everybody has. Root does not open a file for writing that has further names (EMLINK, also
/// where the name it was opened by has gone): one of them may be another program's file.
class GuardedFileChanges : public FileChanges {
 public:
  foundation::Result<void> createDirectory(const std::string& path) override;
  foundation::Result<void> move(const std::string& from, const std::string& to) override;
  foundation::Result<void> copy(const std::string& from, const std::string& to) override;
  foundation::Result<void> copyForOwnUse(const std::string& from, const std::string& to) override;
  foundation::Result<void> remove(const std::string& path) override;
  foundation::Result<void> writeAtomically(const std::string& path, std::string_view bytes) override;
  foundation::Result<void> writeAtomicallyUnsynced(const std::string& path, std::string_view bytes) override;
  foundation::Result<void> createFileUnsynced(const std::string& path, std::string_view bytes) override;
  foundation::Result<FileState> replaceUnchanged(const std::string& path,
                                                 const std::optional<FileState>& seen,
                                                 std::string_view bytes) override;
  foundation::Result<std::unique_ptr<WritableFile>> openForWriting(const std::string& path) override;
};

}  // namespace platform
