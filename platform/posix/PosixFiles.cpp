#include "platform/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/foundation/Paths.h"
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
  UniqueDescriptor descriptor(::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!descriptor) return systemError(errno, path);
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0) return systemError(errno, path);
  if (!S_ISREG(status.st_mode)) return systemError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, path);
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

/// A temporary file beside the one that it will replace; gone with the object unless it was renamed.
class ReplacementFile {
 public:
  explicit ReplacementFile(const std::string& target)
      : path_(foundation::appendingPathComponent(foundation::deletingLastPathComponent(target),
                                                 ".quillmend.XXXXXX")) {
    descriptor_.reset(::mkostemp(path_.data(), O_CLOEXEC));
  }
  ~ReplacementFile() {
    if (descriptor_ && !renamed_) ::unlink(path_.c_str());
  }
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(descriptor_); }
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  [[nodiscard]] bool renameTo(const std::string& target) {
    renamed_ = ::rename(path_.c_str(), target.c_str()) == 0;
    return renamed_;
  }

 private:
  std::string path_;
  UniqueDescriptor descriptor_;
  bool renamed_ = false;
};

mode_t currentUmask() {
  const mode_t mask = ::umask(022);
  ::umask(mask);
  return mask;
}

/// Gives the replacement the owner and mode of the file that it replaces, or those of a new file.
bool takeOverAttributes(int descriptor, const std::string& target) {
  struct stat old {};
  if (::lstat(target.c_str(), &old) != 0 || !S_ISREG(old.st_mode)) {
    return ::fchmod(descriptor, 0644 & ~currentUmask()) == 0;
  }
  struct stat fresh {};
  if (::fstat(descriptor, &fresh) != 0) return false;
  const bool sameOwner = fresh.st_uid == old.st_uid && fresh.st_gid == old.st_gid;
  if (!sameOwner && ::fchown(descriptor, old.st_uid, old.st_gid) != 0) return false;
  return ::fchmod(descriptor, old.st_mode & 07777) == 0;
}

/// Makes the renaming itself last through a power cut.
void syncFolder(const std::string& folder) {
  const UniqueDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor) ::fsync(descriptor.get());
}

Result<void> moveAcrossFileSystems(const std::string& from, const std::string& to) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
  if (error) {
    std::error_code ignored;
    fs::remove_all(to, ignored);
    return systemError(error.value(), from);
  }
  fs::remove_all(from, error);
  if (error) return systemError(error.value(), from);
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
  if (::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) return systemError(errno, path);
  return {};
}

Result<void> PosixFileChanges::move(const std::string& from, const std::string& to) {
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) return systemError(EEXIST, to);
  if (::rename(from.c_str(), to.c_str()) == 0) return {};
  if (errno != EXDEV) return systemError(errno, from);
  return moveAcrossFileSystems(from, to);
}

Result<void> PosixFileChanges::remove(const std::string& path) {
  std::error_code error;
  const auto removed = std::filesystem::remove_all(path, error);
  if (error) return systemError(error.value(), path);
  if (removed == 0) return systemError(ENOENT, path);
  return {};
}

Result<void> PosixFileChanges::writeAtomically(const std::string& path, std::string_view bytes) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return systemError(EISDIR, path);
  ReplacementFile replacement(path);
  if (!replacement.isOpen()) return systemError(errno, path);
  if (auto written = writeAll(replacement.descriptor(), bytes, path); !written) return written;
  if (!takeOverAttributes(replacement.descriptor(), path)) return systemError(errno, path);
  if (::fsync(replacement.descriptor()) != 0) return systemError(errno, path);
  if (!replacement.renameTo(path)) return systemError(errno, path);
  syncFolder(foundation::deletingLastPathComponent(path));
  return {};
}

Result<std::unique_ptr<WritableFile>> PosixFileChanges::openForWriting(const std::string& path) {
  auto descriptor = openRegular(path, O_WRONLY | O_NOFOLLOW);
  if (!descriptor) return descriptor.error();
  return std::unique_ptr<WritableFile>(
      std::make_unique<PosixWritableFile>(std::move(descriptor).value(), path));
}

}  // namespace platform
