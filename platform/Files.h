#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Date.h"
#include "platform/foundation/Result.h"

namespace platform {

enum class Access { read, write, execute };

/// A file as one look at it finds it. Two looks between which it was written or replaced differ, as far as
/// the file system tells moments apart (some milliseconds on Linux).
struct FileState {
  std::uint64_t device = 0;
  std::uint64_t number = 0;              ///< on its device: st_ino of stat(2)
  std::uint64_t size = 0;                ///< bytes
  std::chrono::nanoseconds modified{0};  ///< since 1970
  std::uint32_t owner = 0;               ///< a user id
  bool operator==(const FileState&) const = default;
};

/// Questions about the file system. Paths are bytes; links are followed unless said otherwise. Nothing blocks
/// on a FIFO or a device.
class FileQueries {
 public:
  virtual ~FileQueries() = default;

  /// Something is there (a dangling link is nothing).
  [[nodiscard]] virtual bool exists(const std::string& path) = 0;

  /// A directory is there.
  [[nodiscard]] virtual bool isDirectory(const std::string& path) = 0;

  /// The process may access the path that way, by its effective user id: faccessat(2) with AT_EACCESS.
  [[nodiscard]] virtual bool isAccessible(const std::string& path, Access access) = 0;

  /// The names in a folder without "." and "..", sorted by their bytes whatever the volume and the locale:
  /// which report is the last one, and in what order things are trashed, is not left to chance.
  [[nodiscard]] virtual foundation::Result<std::vector<std::string>> contentsOfDirectory(
      const std::string& path) = 0;

  /// The whole content of a regular file of at most `limit` bytes (EFBIG beyond it; EINVAL for what is no
  /// regular file).
  [[nodiscard]] virtual foundation::Result<std::string> readFile(const std::string& path,
                                                                 std::uint64_t limit) = 0;

  /// The same, but a symbolic link in the last component is an error (ELOOP), and for root also one on the
  /// way that others than root can have put there: for files in a folder that another account controls, whose
  /// content goes where that account can read it.
  [[nodiscard]] virtual foundation::Result<std::string> readFileItself(const std::string& path,
                                                                       std::uint64_t limit) = 0;

  /// A folder is there that nobody but this process's user and root can change, or put another in the place
  /// of: one of the two owns it and every folder above it, and others may write in none of them; above it
  /// they may where the sticky bit keeps them from what is not theirs, as in "/tmp". No for a symbolic link,
  /// and for a path that leads through one that others can have put there.
  [[nodiscard]] virtual bool isOutOfOthersReach(const std::string& path) = 0;

  /// When the content last changed, or nullopt when nothing is there.
  [[nodiscard]] virtual std::optional<foundation::Date> modificationDate(const std::string& path) = 0;

  /// What is there now, or nullopt when nothing is.
  [[nodiscard]] virtual std::optional<FileState> state(const std::string& path) = 0;

  /// Where a symbolic link in the last component leads, through as many as there are, whether or not anything
  /// is there; a path at which no link lies is its own answer. ELOOP for links that lead to each other.
  [[nodiscard]] virtual foundation::Result<std::string> linkTarget(const std::string& path) = 0;
};

/// A file open for writing; closed by the destructor.
class WritableFile {
 public:
  virtual ~WritableFile() = default;

  /// Writes all the bytes at the current position.
  virtual foundation::Result<void> write(std::string_view bytes) = 0;

  /// Moves behind the last byte. From now on each write appends, and one that fails leaves nothing behind.
  virtual foundation::Result<void> seekToEnd() = 0;
};

/// Changes to the file system. Root makes them in folders that belong to others too: it follows a symbolic
/// link on the way only where nobody but root can have put it (ELOOP for any other), and what it makes anew
/// in somebody else's folder belongs to that folder's owner and group.
class FileChanges {
 public:
  virtual ~FileChanges() = default;

  /// Creates a folder and the folders above it that are missing; it being there already is success.
  virtual foundation::Result<void> createDirectory(const std::string& path) = 0;

  /// Moves an item to a path where nothing is (EEXIST otherwise): rename(2), on another file system a copy
  /// that is removed on failure, then the removal of the source.
  virtual foundation::Result<void> move(const std::string& from, const std::string& to) = 0;

  /// Copies an item to a path where nothing is (EEXIST otherwise), a folder with all it holds, with modes,
  /// times, extended attributes and hard links among the copied; links are copied as links. A copy that fails
  /// leaves nothing behind, and nothing is at the path before the copy is whole.
  virtual foundation::Result<void> copy(const std::string& from, const std::string& to) = 0;

  /// Copies a folder like copy(), for programs in it to be run: before the copy appears it is this process's
  /// user's own, and others may not enter it (mode 0700). A copy of root's is for everybody to run, but not
  /// to change (0755). ENOTDIR for what is no folder.
  virtual foundation::Result<void> copyForOwnUse(const std::string& from, const std::string& to) = 0;

  /// Removes a file, link or whole folder; never follows a link.
  virtual foundation::Result<void> remove(const std::string& path) = 0;

  /// Replaces a file's content in one step: temporary file beside it, sync, rename. A file that was there
  /// keeps its owner and mode as far as the process may give them; a new one gets mode 0644 less the umask.
  /// Fails without a trace.
  virtual foundation::Result<void> writeAtomically(const std::string& path, std::string_view bytes) = 0;

  /// The same, but the disk is not waited for: after a power cut the file may be empty or missing. For what
  /// is as good as nothing by itself, such as the header of a log.
  virtual foundation::Result<void> writeAtomicallyUnsynced(const std::string& path, std::string_view bytes) {
    return writeAtomically(path, bytes);
  }

  /// Makes a file where nothing is (EEXIST otherwise, also for a link that leads nowhere), whole or not at
  /// all: of two that make it at the same moment one does, and the other learns of it. The disk is not waited
  /// for here either. Fails without a trace.
  virtual foundation::Result<void> createFileUnsynced(const std::string& path, std::string_view bytes) = 0;

  /// Writes atomically, but only in the place of what was seen there (nullopt: of nothing): EAGAIN where
  /// something else is there just before the renaming. Between that look and the renaming is no more than a
  /// system call, but it is: who is to be kept out wholly must ask for the same lock (FileLocks.h). Answers
  /// the state of the file that it wrote, whatever has taken its place since.
  virtual foundation::Result<FileState> replaceUnchanged(const std::string& path,
                                                         const std::optional<FileState>& seen,
                                                         std::string_view bytes) = 0;

  /// Opens an existing regular file for writing at its start, without cutting it; never creates one, never
  /// follows a link in the last component, never blocks.
  [[nodiscard]] virtual foundation::Result<std::unique_ptr<WritableFile>> openForWriting(
      const std::string& path) = 0;
};

}  // namespace platform
