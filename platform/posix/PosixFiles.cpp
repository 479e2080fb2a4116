#include "platform/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "platform/linux/LinuxFileCopies.h"
#include "platform/posix/TreeCopy.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr std::size_t kReadSize = 64UL << 10;

Result<void> writeAll(int descriptor, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return systemError(errno, path);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

class PosixWritableFile : public WritableFile {
 public:
  PosixWritableFile(UniqueDescriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  Result<void> write(std::string_view bytes) override { return writeAll(descriptor_.get(), bytes, path_); }
  Result<void> seekToEnd() override {
    if (::lseek(descriptor_.get(), 0, SEEK_END) < 0) return systemError(errno, path_);
    return {};
  }

 private:
  UniqueDescriptor descriptor_;
  std::string path_;
};

/// Opens a regular file; whatever else is there is refused without blocking on it.
Result<UniqueDescriptor> openRegular(const std::string& path, int flags) {
  struct stat status {};
  // Looked at first, because opening a device can do something to it and opening a FIFO wakes its writers.
  if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) return systemError(EINVAL, path);
  UniqueDescriptor descriptor(::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!descriptor) return systemError(errno, path);
  if (::fstat(descriptor.get(), &status) != 0) return systemError(errno, path);
  if (!S_ISREG(status.st_mode)) return systemError(EINVAL, path);
  return descriptor;
}

/// The whole content of a regular file, opened with further flags.
Result<std::string> readWhole(const std::string& path, std::uint64_t limit, int flags) {
  auto descriptor = openRegular(path, O_RDONLY | flags);
  if (!descriptor) return descriptor.error();
  std::string bytes;
  std::string piece(kReadSize, '\0');
  while (true) {
    const ssize_t length = ::read(descriptor.value().get(), piece.data(), piece.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return systemError(errno, path);
    if (length == 0) return bytes;
    bytes.append(piece, 0, static_cast<std::size_t>(length));
    if (bytes.size() > limit) return systemError(EFBIG, path);
  }
}

/// A folder held open, so that what is done in it stays in it whatever becomes of its path meanwhile, and the
/// name of an item in it.
struct Place {
  UniqueDescriptor folder;
  std::string name;
};

Result<Place> placeOf(const std::string& path) {
  const std::string parent = foundation::deletingLastPathComponent(path);
  const char* const folder = parent.empty() ? "." : parent.c_str();
  Place place{UniqueDescriptor(::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
              foundation::lastPathComponent(path)};
  // A folder may be writable and not readable; it only cannot be synchronised then.
  if (!place.folder && errno == EACCES) place.folder.reset(::open(folder, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!place.folder) return systemError(errno, path);
  return place;
}

/// A name that nobody can guess and occupy beforehand, independent of the target's (which may be as long as a
/// name can be).
std::string temporaryName() {
  std::array<unsigned char, 12> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  std::string name = ".quillmend.";
  for (const unsigned char byte : bytes) name += foundation::stringWithFormat("%02x", unsigned{byte});
  return name;
}

/// A temporary file beside the one that it will replace; gone with the object unless it was renamed.
class ReplacementFile {
 public:
  ReplacementFile(const Place& target, mode_t mode)
      : target_(target),
        name_(temporaryName()),
        descriptor_(::openat(target.folder.get(), name_.c_str(),
                             O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)) {}
  ~ReplacementFile() {
    if (descriptor_ && !renamed_) ::unlinkat(target_.folder.get(), name_.c_str(), 0);
  }
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(descriptor_); }
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  [[nodiscard]] bool replaceTarget() {
    const int folder = target_.folder.get();
    renamed_ = ::renameat(folder, name_.c_str(), folder, target_.name.c_str()) == 0;
    return renamed_;
  }

 private:
  const Place& target_;
  std::string name_;
  UniqueDescriptor descriptor_;
  bool renamed_ = false;
};

/// Gives the replacement the owner and mode of the file that it replaces. Set-id bits are not taken over: as
/// root that would put new content under a right that was given to the old.
bool takeOverAttributes(int descriptor, const struct stat& old) {
  struct stat fresh {};
  if (::fstat(descriptor, &fresh) != 0) return false;
  const bool sameOwner = fresh.st_uid == old.st_uid && fresh.st_gid == old.st_gid;
  if (!sameOwner && ::fchown(descriptor, old.st_uid, old.st_gid) != 0) return false;
  return ::fchmod(descriptor, old.st_mode & 0777U) == 0;
}

/// rename(2) that replaces nothing; 0 or an errno value.
int renameExclusively(const Place& from, const Place& to) {
  const char* const oldName = from.name.c_str();
  const char* const newName = to.name.c_str();
  if (::renameat2(from.folder.get(), oldName, to.folder.get(), newName, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system that does not know the flag, or a folder moved into itself: look first, then rename.
  struct stat status {};
  if (::fstatat(to.folder.get(), newName, &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return ::renameat(from.folder.get(), oldName, to.folder.get(), newName) == 0 ? 0 : errno;
}

/// A folder that only this process's account can enter, in which a copy is made before it appears under its
/// name; removed with what is left in it.
class PrivateFolder {
 public:
  explicit PrivateFolder(const UniqueDescriptor& parent) : parent_(parent), name_(temporaryName()) {
    if (::mkdirat(parent_.get(), name_.c_str(), 0700) != 0) return;
    folder_.reset(::openat(parent_.get(), name_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  ~PrivateFolder() {
    if (folder_) static_cast<void>(removeItem(parent_.get(), name_));
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(folder_); }
  [[nodiscard]] Place placeFor(const std::string& name) const {
    return {UniqueDescriptor(::fcntl(folder_.get(), F_DUPFD_CLOEXEC, 0)), name};
  }

 private:
  const UniqueDescriptor& parent_;
  const std::string name_;
  UniqueDescriptor folder_;
};

Result<void> moveAcrossFileSystems(const Place& from, const Place& to, const std::string& path) {
  const PrivateFolder folder(to.folder);
  if (!folder.isOpen()) return systemError(errno, path);
  const Place copy = folder.placeFor(from.name);
  auto copied = copyItem(from.folder.get(), from.name, copy.folder.get());
  if (!copied) return systemError(copied.error().code, path);
  if (const int reason = renameExclusively(copy, to); reason != 0) return systemError(reason, path);
  ::fsync(to.folder.get());
  if (auto removed = removeCopied(from.folder.get(), copied.value()); !removed) {
    return systemError(removed.error().code, path);
  }
  return {};
}

}  // namespace

bool PosixFileQueries::exists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool PosixFileQueries::isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool PosixFileQueries::isAccessible(const std::string& path, Access access) {
  const int mode = access == Access::read ? R_OK : access == Access::write ? W_OK : X_OK;
  return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

Result<std::vector<std::string>> PosixFileQueries::contentsOfDirectory(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), &::closedir);
  if (!folder) return systemError(errno, path);
  std::vector<std::string> names;
  while (true) {
    errno = 0;
    const dirent* const entry = ::readdir(folder.get());
    if (entry == nullptr) break;
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  if (errno != 0) return systemError(errno, path);
  std::sort(names.begin(), names.end());
  return names;
}

Result<std::string> PosixFileQueries::readFile(const std::string& path, std::uint64_t limit) {
  return readWhole(path, limit, 0);
}

Result<std::string> PosixFileQueries::readFileItself(const std::string& path, std::uint64_t limit) {
  return readWhole(path, limit, O_NOFOLLOW);
}

std::optional<foundation::Date> PosixFileQueries::modificationDate(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  const auto moment =
      std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec);
  return foundation::Date(foundation::Date::TimePoint(moment));
}

Result<void> PosixFileChanges::createDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0777) == 0) return {};
  const int reason = errno;
  struct stat status {};
  if (reason == EEXIST && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return {};
  const std::string parent = foundation::deletingLastPathComponent(path);
  if (reason != ENOENT || parent.empty() || parent == path) return systemError(reason, path);
  if (auto made = createDirectory(parent); !made) return made;
  if (::mkdir(path.c_str(), 0777) == 0) return {};
  // Somebody else may have made it in the meantime.
  const int secondReason = errno;
  if (secondReason == EEXIST && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return {};
  return systemError(secondReason, path);
}

Result<void> PosixFileChanges::move(const std::string& from, const std::string& to) {
  const auto source = placeOf(from);
  if (!source) return source.error();
  const auto target = placeOf(to);
  if (!target) return target.error();
  const int reason = renameExclusively(source.value(), target.value());
  if (reason == 0) return {};
  if (reason == EXDEV) return moveAcrossFileSystems(source.value(), target.value(), from);
  return systemError(reason, reason == EEXIST ? to : from);
}

Result<void> PosixFileChanges::copy(const std::string& from, const std::string& to) {
  return copyToPath(from, to);
}

Result<void> PosixFileChanges::remove(const std::string& path) {
  std::error_code error;
  const auto removed = std::filesystem::remove_all(path, error);
  if (error) return systemError(error.value(), path);
  if (removed == 0) return systemError(ENOENT, path);
  return {};
}

Result<void> PosixFileChanges::writeAtomically(const std::string& path, std::string_view bytes) {
  const auto place = placeOf(path);
  if (!place) return place.error();
  const Place& target = place.value();
  struct stat old {};
  const bool isThere = ::fstatat(target.folder.get(), target.name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (isThere && S_ISDIR(old.st_mode)) return systemError(EISDIR, path);
  const bool replacesFile = isThere && S_ISREG(old.st_mode);
  // What replaces a file may be as confidential as that; nobody else reads it before it has its mode.
  ReplacementFile replacement(target, replacesFile ? 0600 : 0644);
  if (!replacement.isOpen()) return systemError(errno, path);
  if (auto written = writeAll(replacement.descriptor(), bytes, path); !written) return written;
  if (replacesFile && !takeOverAttributes(replacement.descriptor(), old)) return systemError(errno, path);
  if (::fsync(replacement.descriptor()) != 0) return systemError(errno, path);
  if (!replacement.replaceTarget()) return systemError(errno, path);
  ::fsync(target.folder.get());  // makes the renaming itself last through a power cut
  return {};
}

Result<std::unique_ptr<WritableFile>> PosixFileChanges::openForWriting(const std::string& path) {
  auto descriptor = openRegular(path, O_WRONLY | O_NOFOLLOW);
  if (!descriptor) return descriptor.error();
  struct stat status {};
  if (::fstat(descriptor.value().get(), &status) != 0) return systemError(errno, path);
  if (::geteuid() == 0 && status.st_nlink > 1) return systemError(EMLINK, path);
  return std::unique_ptr<WritableFile>(
      std::make_unique<PosixWritableFile>(std::move(descriptor).value(), path));
}

}  // namespace platform
