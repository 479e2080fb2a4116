#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

/// Files held by descriptors. Every descriptor here holds an entry (HeldEntries.h): nothing is ever opened
/// for reading or writing by looking, so that a FIFO or a device cannot make a tool wait or do something.
namespace platform {

/// What statx(2), elsewhere stat(2), tells about one file.
struct FileStatus {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t mount = 0;  ///< the mount that it was reached through; 0 where the kernel does not tell
  mode_t mode = 0;          ///< type and permission bits
  uid_t owner = 0;
  gid_t group = 0;
  std::uint64_t links = 0;
  std::uint64_t size = 0;
  dev_t representedDevice = 0;  ///< of a device file
  std::uint64_t blocks = 0;     ///< of 512 bytes; fewer than the size needs where there are holes
  timespec accessed{};
  timespec modified{};
  timespec changed{};

  [[nodiscard]] bool isFolder() const { return S_ISDIR(mode); }
  [[nodiscard]] bool isSymbolicLink() const { return S_ISLNK(mode); }
  [[nodiscard]] bool isRegular() const { return S_ISREG(mode); }
  [[nodiscard]] bool isSameFile(const FileStatus& other) const {
    return device == other.device && inode == other.inode;
  }
  /// Reached through the same mount: a volume mounted in a folder of another is not part of it. The device
  /// counts only where the kernel does not tell mounts apart: on an overlay of several file systems files
  /// have another one than their folder.
  [[nodiscard]] bool isSameVolume(const FileStatus& other) const {
    const bool mountsAreTold = mount != 0 && other.mount != 0;
    return mountsAreTold ? mount == other.mount : device == other.device;
  }
  [[nodiscard]] mode_t permissions() const { return mode & static_cast<mode_t>(07777); }
  /// Those less the set-ID bits.
  [[nodiscard]] mode_t unprivilegedPermissions() const { return mode & static_cast<mode_t>(01777); }
};

/// A device as FileStatus::device has it.
[[nodiscard]] std::uint64_t deviceNumber(dev_t device);

/// The status of an open descriptor. `path` is for the error.
[[nodiscard]] foundation::Result<FileStatus> statusOf(int descriptor, std::string_view path);

/// The status of one entry of an open folder, which is not opened, nor followed where it is a link.
[[nodiscard]] foundation::Result<FileStatus> statusIn(int folder, const std::string& name,
                                                      std::string_view path);

/// Holds one entry of an open folder without following it; `flags` are those of open(2).
[[nodiscard]] foundation::Result<UniqueDescriptor> openEntry(int folder, const std::string& name,
                                                             std::string_view path, int flags = 0);

/// What a symbolic link leads to that is held.
[[nodiscard]] foundation::Result<std::string> targetOfLink(int link, std::string_view path);

/// Lists an open folder, "." and ".." left out, until `onEntry` answers no.
[[nodiscard]] foundation::Result<void> listFolder(int folder, std::string_view path,
                                                  const std::function<bool(const dirent&)>& onEntry);

/// The names in an open folder, "." and ".." left out. `most` limits how many are read; 0 reads all.
[[nodiscard]] foundation::Result<std::vector<std::string>> namesIn(int folder, std::string_view path,
                                                                   std::size_t most = 0);

/// Names in the room that they need: their bytes and one more each. Given out one after the other, in the
/// order in which they were added; what has been given out is freed bit by bit.
class NameList {
 public:
  void add(std::string_view name);
  [[nodiscard]] bool empty() const { return first_ == blocks_.size(); }
  /// REQUIRES that it is not empty.
  [[nodiscard]] std::string next();
  /// The same into a text that keeps its room from one name to the next.
  void takeNext(std::string& name);

 private:
  std::vector<std::string> blocks_;  ///< names, each with a zero byte at its end
  std::size_t first_ = 0;            ///< the block that the next name is in
  std::size_t at_ = 0;               ///< and where it begins there
};

/// The same for a folder of any size.
[[nodiscard]] foundation::Result<NameList> listedNames(int folder, std::string_view path);

/// One component on the way from "/" to a path's end.
struct PathLevel {
  std::string name;  ///< empty for "/"
  UniqueDescriptor descriptor;
  FileStatus status;
  bool onlyRootCanChange = false;  ///< this folder and all above it: see locate()
};

/// An existing entry and all folders that lead to it. Has at least two levels: "/" itself is no entry.
struct PathEntry {
  std::vector<PathLevel> levels;
  std::string path;  ///< the real path: links on the way, "..", "." and doubled slashes are resolved

  [[nodiscard]] const PathLevel& self() const { return levels.back(); }
  [[nodiscard]] const PathLevel& folder() const { return levels[levels.size() - 2]; }
  [[nodiscard]] const std::string& name() const { return self().name; }
  [[nodiscard]] const FileStatus& status() const { return self().status; }
};

enum class LastLink { keep, follow };

/// Opens a path below `root`, an open folder that is "/" to it, one component at a time, so that nobody can
/// turn it elsewhere by planting a symbolic link. A link on the way is followed only where none but root (or
/// the user that this process acts as) can have put it there: link and folder belong to root, and neither the
/// folder nor any above it can be written by others, by a list neither (by a group only where the sticky bit
/// is set, as "/" is on some systems). /var on a Mac is such a link. Any other link on the way is refused.
/// With LastLink::keep a link at the path's end is the entry itself; with `follow` the rule above holds for
/// it.
///
/// Errors: ENOENT or ENOTDIR where there is no such entry; EPERM where it is refused, as "/" is, and a link
/// as above; EINVAL for a path that does not begin with a slash or holds a zero byte; else what the system
/// said.
[[nodiscard]] foundation::Result<PathEntry> locate(int root, std::string_view path,
                                                   LastLink lastLink = LastLink::keep);

/// The same for a folder, the last link followed: "/" is one too, and a path may begin in the current folder.
/// That counts as one that anybody can change, so that no link on a relative path is followed. The descriptor
/// holds it. ENOTDIR for what is no folder.
[[nodiscard]] foundation::Result<UniqueDescriptor> locateFolder(const std::string& path);

/// How folders are made.
struct NewFolders {
  mode_t mode = 0755;            ///< less the umask
  std::function<bool()> goesOn;  ///< asked before each
};

/// The same where each folder that is missing on the path is made, by one walk: what is made is held, ".."
/// leads out of it again, and what somebody else makes at that moment is taken as what it is. Nothing is made
/// where a link leads to nothing (EEXIST). A link on the way is followed by root as locate() says, by others
/// always. Errors: ELOOP where it is refused; ECANCELED where it does not go on; what has been made stays.
[[nodiscard]] foundation::Result<UniqueDescriptor> makeFolderPath(const std::string& path,
                                                                  const NewFolders& newFolders);

/// Whether an error of locate() means that there is no such entry.
[[nodiscard]] bool isMissing(const foundation::Error& error);

/// Whether only root, or the user that this process acts as, owns it.
[[nodiscard]] bool isTrustedOwner(uid_t user);

/// Whether an open file that is no folder still has the name that it was opened by. FileStatus::links of one
/// that has lost it counts its other names only: a second name of /etc/shadow that is taken away between the
/// two calls makes that a file with one link. So a file has no name elsewhere only where its status says one
/// link and, asked after that, this is so. `name` in the open folder `folder` is what it was opened by.
///
/// Linux answers no for a name that ends in " (deleted)", because the kernel tells by those words (proc(5)),
/// and yes where /proc is not mounted; it needs neither folder nor name. On a Mac the name must lead to the
/// file, the file have one name, and nothing have changed while that was asked; it answers no within two
/// seconds of a change where the volume keeps whole seconds only, because it might have changed again.
[[nodiscard]] bool hasKeptItsName(int descriptor, int folder, const std::string& name);

/// The same for many files: the place where Linux tells it, /proc/self/fd, is looked up once and held by a
/// descriptor. REQUIRES to be asked in the process that made the object.
class KeptNames {
 public:
  KeptNames();
  [[nodiscard]] bool has(int descriptor, int folder, const std::string& name) const;

 private:
  UniqueDescriptor descriptors_;  ///< nothing where there is none to be had, or none needed
};

}  // namespace platform
