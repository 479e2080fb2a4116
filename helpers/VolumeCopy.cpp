#include "helpers/VolumeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "helpers/ChmodTool.h"
#include "helpers/FileAttributes.h"
#include "helpers/HelperProcess.h"
#include "platform/foundation/Paths.h"

namespace helpers {
namespace {

using foundation::Result;
using foundation::systemError;
using platform::UniqueDescriptor;

constexpr int kDeepest = 200;
using Block = std::array<char, 65536>;

/// Opens a file that was looked at by O_PATH for reading, if its name still leads to it.
Result<UniqueDescriptor> openForReading(int folder, const std::string& name, const FileStatus& seen,
                                        const std::string& path) {
  UniqueDescriptor file(
      openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return systemError(errno, path);
  const auto status = statusOf(file.get(), path);
  if (!status) return status.error();
  if (!status.value().isSameFile(seen)) return errorWithReason(EBUSY, path, "changed while it was copied");
  return file;
}

/// How much of the block could be filled; less than all of it only at the file's end.
Result<std::size_t> readBlock(int file, Block& block, const std::string& path) {
  std::size_t filled = 0;
  while (filled < block.size()) {
    const ssize_t count = read(file, block.data() + filled, block.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError(errno, path);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

Result<void> writeBlock(int file, const char* data, std::size_t length, const std::string& path) {
  while (length > 0) {
    const ssize_t count = write(file, data, length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError(errno, path);
    data += count;
    length -= static_cast<std::size_t>(count);
  }
  return {};
}

bool isZero(const Block& block, std::size_t length) {
  return std::all_of(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length),
                     [](char byte) { return byte == 0; });
}

Result<void> copyBytes(int from, int to, const std::string& path) {
  Block block{};
  off_t total = 0;
  while (true) {
    const auto length = readBlock(from, block, path);
    if (!length) return length.error();
    if (length.value() == 0) break;
    total += static_cast<off_t>(length.value());
    if (isZero(block, length.value())) {
      if (lseek(to, total, SEEK_SET) < 0) return systemError(errno, path);
    } else if (auto written = writeBlock(to, block.data(), length.value(), path); !written) {
      return written;
    }
    if (stopRequested()) return systemError(EINTR, path);
  }
  if (ftruncate(to, total) != 0 || fsync(to) != 0) return systemError(errno, path);
  return {};
}

Result<void> compareBytes(int from, int to, const std::string& path) {
  Block original{};
  Block copy{};
  while (true) {
    const auto length = readBlock(from, original, path);
    const auto copyLength = readBlock(to, copy, path);
    if (!length) return length.error();
    if (!copyLength) return copyLength.error();
    const auto end = original.begin() + static_cast<std::ptrdiff_t>(length.value());
    if (length.value() != copyLength.value() || !std::equal(original.begin(), end, copy.begin())) {
      return errorWithReason(EIO, path, "the copy differs");
    }
    if (length.value() == 0) return {};
  }
}

Result<std::string> linkText(int link, const std::string& path) {
  std::string text(65536, '\0');
  const ssize_t length = readlinkat(link, "", text.data(), text.size());
  if (length < 0) return systemError(errno, path);
  text.resize(static_cast<std::size_t>(length));
  return text;
}

Result<void> copySymbolicLink(int from, int toFolder, const std::string& toName, const std::string& path) {
  const auto text = linkText(from, path);
  if (!text) return text.error();
  if (symlinkat(text.value().c_str(), toFolder, toName.c_str()) != 0) return systemError(errno, path);
  return {};
}

/// FIFOs and sockets: made anew, never opened. A device in a folder of a user's own would be a way to the
/// hardware that its administrator has not given.
Result<void> makeSpecialFile(const FileStatus& status, int toFolder, const std::string& toName,
                             const std::string& path) {
  if (S_ISCHR(status.mode) || S_ISBLK(status.mode)) {
    return errorWithReason(EPERM, path, "a device is not copied to another volume");
  }
  if (mknodat(toFolder, toName.c_str(), (status.mode & static_cast<mode_t>(S_IFMT)) | 0600U, 0) != 0) {
    return systemError(errno, path);
  }
  return {};
}

/// Whether what was opened is what was just made: before anything is given away.
Result<void> requireOurs(int made, mode_t mode, const std::string& path) {
  const auto status = statusOf(made, path);
  if (!status) return status.error();
  const FileStatus& found = status.value();
  const bool ours = found.owner == geteuid() && ((found.mode ^ mode) & S_IFMT) == 0;
  if (ours && (found.isFolder() || found.links == 1)) return {};
  return errorWithReason(EBUSY, path, "the copy was exchanged while it was made");
}

/// Owner and mode of what cannot be opened for more than O_PATH.
Result<void> copyOwnerAndMode(const FileStatus& status, int toFolder, const std::string& toName,
                              const std::string& path) {
  auto made = openEntry(toFolder, toName, path);
  if (!made) return made.error();
  if (auto ours = requireOurs(made.value().get(), status.mode, path); !ours) return ours;
  if (fchownat(made.value().get(), "", status.owner, status.group, AT_EMPTY_PATH) != 0) {
    return systemError(errno, path);
  }
  if (status.isSymbolicLink()) return {};
  return setPermissions(made.value().get(), status.unprivilegedPermissions(), path);
}

Result<void> copyRegularFile(int folder, const std::string& name, const FileStatus& status, int toFolder,
                             const std::string& toName, const std::string& path) {
  auto from = openForReading(folder, name, status, path);
  if (!from) return from.error();
  const UniqueDescriptor to(
      openat(toFolder, toName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!to) return systemError(errno, path);
  if (auto copied = copyBytes(from.value().get(), to.get(), path); !copied) return copied;
  return copyOwnerModeAndAttributes(from.value().get(), status, to.get(), path,
                                    CopiedRights::withoutPrivileges);
}

Result<void> copyOther(int from, const FileStatus& status, int toFolder, const std::string& toName,
                       const std::string& path, const VolumeCopy::OnMade& onMade) {
  auto made = status.isSymbolicLink() ? copySymbolicLink(from, toFolder, toName, path)
                                      : makeSpecialFile(status, toFolder, toName, path);
  if (made && onMade) onMade();
  return made ? copyOwnerAndMode(status, toFolder, toName, path) : made;
}

/// The folders: each file has been synced by itself.
Result<void> syncVolumeOf(int folder, const std::string& path) {
  const UniqueDescriptor readable(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!readable || syncfs(readable.get()) != 0) return systemError(errno, path);
  return {};
}

bool isSameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// removeOriginals and removeTree in one: what `mayRemove` refuses stays, and with it the folders that hold
/// it.
template <typename MayRemove, typename Kept>
void removeBelow(int folder, const std::string& name, const std::string& path, const MayRemove& mayRemove,
                 const Kept& kept) {
  auto entry = openEntry(folder, name, path);
  if (!entry) return;
  const auto status = statusOf(entry.value().get(), path);
  if (!status || !mayRemove(status.value())) return kept(path, "changed or added since, left in place");
  if (!status.value().isFolder()) {
    if (unlinkat(folder, name.c_str(), 0) != 0)
      kept(path, "cannot be removed, though its copy is in the trash");
    return;
  }
  const auto names = namesIn(entry.value().get(), path);
  if (names) {
    for (const std::string& below : names.value()) {
      removeBelow(entry.value().get(), below, foundation::appendingPathComponent(path, below), mayRemove,
                  kept);
    }
  }
  if (unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0) kept(path, "cannot be removed");
}

}  // namespace

Result<StagingFolder> StagingFolder::make(int parent, const std::string& name, const std::string& path) {
  if (mkdirat(parent, name.c_str(), 0700) != 0) return systemError(errno, path);
  auto made = openEntry(parent, name, path, O_DIRECTORY);
  if (!made) return made.error();
  const auto status = statusOf(made.value().get(), path);
  if (!status) return status.error();
  if (status.value().owner != geteuid() || (status.value().mode & 0777U) != 0700U) {
    return errorWithReason(EBUSY, path, "the folder for its copy was exchanged");
  }
  return StagingFolder(parent, name, std::move(made).value());
}

StagingFolder::~StagingFolder() {
  if (descriptor_) unlinkat(parent_, name_.c_str(), AT_REMOVEDIR);
}

Result<void> VolumeCopy::copy(int fromFolder, const std::string& fromName, int toFolder,
                              const std::string& toName, const std::string& path) {
  copied_.clear();
  const Place from{fromFolder, fromName};
  const Place to{toFolder, toName};
  Result<void> done = copyEntry(from, to, path, 0);
  if (done) done = syncVolumeOf(toFolder, path);
  if (done) done = compareEntry(from, to, path);
  if (!done) removeTree(toFolder, toName);
  return done;
}

Result<void> VolumeCopy::copyEntry(const Place& from, const Place& to, const std::string& path, int depth) {
  if (stopRequested()) return systemError(EINTR, path);
  if (depth > kDeepest) return errorWithReason(ENAMETOOLONG, path, "too many folders in each other");
  auto entry = openEntry(from.folder, from.name, path);
  if (!entry) return entry.error();
  const auto seen = statusOf(entry.value().get(), path);
  if (!seen) return seen.error();
  const FileStatus& status = seen.value();
  if (depth == 0) top_ = status;
  if (!status.isSameVolume(top_)) return errorWithReason(EXDEV, path, "another volume is mounted there");
  Result<void> copied = status.isFolder() ? copyFolder(entry.value().get(), status, to, path, depth)
                        : status.isRegular()
                            ? copyRegularFile(from.folder, from.name, status, to.folder, to.name, path)
                            : copyOther(entry.value().get(), status, to.folder, to.name, path, onMade_);
  if (!copied) return copied;
  copied_[FileKey(status.device, status.inode)] = status;
  return setModified(to.folder, to.name, status, path);
}

Result<void> VolumeCopy::copyFolder(int from, const FileStatus& status, const Place& to,
                                    const std::string& path, int depth) {
  const UniqueDescriptor readable(openat(from, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!readable) return systemError(errno, path);
  if (mkdirat(to.folder, to.name.c_str(), 0700) != 0) return systemError(errno, path);
  const UniqueDescriptor made(
      openat(to.folder, to.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!made) return systemError(errno, path);
  if (auto ours = requireOurs(made.get(), status.mode, path); !ours) return ours;
  const auto names = namesIn(from, path);
  if (!names) return names.error();
  for (const std::string& name : names.value()) {
    auto copied = copyEntry({from, name}, {made.get(), name}, foundation::appendingPathComponent(path, name),
                            depth + 1);
    if (!copied) return copied;
  }
  return copyOwnerModeAndAttributes(readable.get(), status, made.get(), path,
                                    CopiedRights::withoutPrivileges);
}

Result<void> VolumeCopy::compareEntry(const Place& from, const Place& to, const std::string& path) {
  auto original = openEntry(from.folder, from.name, path);
  if (!original) return original.error();
  const auto status = statusOf(original.value().get(), path);
  if (!status) return status.error();
  if (!isUnchanged(status.value())) return errorWithReason(EBUSY, path, "changed while it was copied");
  auto copy = openEntry(to.folder, to.name, path);
  if (!copy) return copy.error();
  if (status.value().isFolder()) return compareFolder(original.value().get(), copy.value().get(), path);
  if (!status.value().isRegular()) return {};
  auto originalFile = openForReading(from.folder, from.name, status.value(), path);
  if (!originalFile) return originalFile.error();
  const UniqueDescriptor copyFile(openat(to.folder, to.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!copyFile) return systemError(errno, path);
  return compareBytes(originalFile.value().get(), copyFile.get(), path);
}

Result<void> VolumeCopy::compareFolder(int from, int to, const std::string& path) {
  const auto names = namesIn(from, path);
  if (!names) return names.error();
  for (const std::string& name : names.value()) {
    auto same = compareEntry({from, name}, {to, name}, foundation::appendingPathComponent(path, name));
    if (!same) return same;
  }
  return {};
}

bool VolumeCopy::isUnchanged(const FileStatus& status) const {
  const auto found = copied_.find(FileKey(status.device, status.inode));
  if (found == copied_.end()) return false;
  const FileStatus& then = found->second;
  return status.isFolder() ||
         (then.size == status.size && then.mode == status.mode && isSameTime(then.modified, status.modified));
}

void VolumeCopy::removeOriginals(int fromFolder, const std::string& fromName, const std::string& path) {
  removeBelow(
      fromFolder, fromName, path, [this](const FileStatus& status) { return isUnchanged(status); },
      [this](const std::string& kept, const char* reason) { report_.failure(kept, reason); });
}

void removeTree(int folder, const std::string& name) {
  removeBelow(
      folder, name, name, [](const FileStatus&) { return true; }, [](const std::string&, const char*) {});
}

}  // namespace helpers
