#include "platform/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>

#include "platform/foundation/Paths.h"
#include "platform/posix/FileStates.h"
#include "platform/posix/FileTimes.h"
#include "platform/posix/RegularFile.h"

namespace platform {

using foundation::Result;
using foundation::systemError;

namespace {

Result<std::string> read(const std::string& path, std::uint64_t limit, int flags) {
  auto file = openRegularFile(AT_FDCWD, path, O_RDONLY | flags, path);
  if (!file) return file.error();
  return readWholeFile(file.value().get(), limit, path);
}

/// How many links in a row are followed, as a system does itself (SYMLOOP_MAX).
constexpr int kMostLinks = 40;

/// EINVAL for what is no link.
Result<std::string> readLink(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length < 0) return systemError(errno, path);
  return std::string(target.data(), static_cast<std::size_t>(length));
}

}  // namespace

bool PosixFileQueries::exists(const std::string& path) {
  struct stat status {};
  // Something may well be on a volume that cannot tell at the moment.
  return ::stat(path.c_str(), &status) == 0 || errno == EIO;
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
  return read(path, limit, 0);
}

Result<std::string> PosixFileQueries::readFileItself(const std::string& path, std::uint64_t limit) {
  return read(path, limit, O_NOFOLLOW);
}

bool PosixFileQueries::isOutOfOthersReach(const std::string&) {
  return false;
}

std::optional<foundation::Date> PosixFileQueries::modificationDate(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  const timespec changed = modificationTime(status);
  const auto moment = std::chrono::seconds(changed.tv_sec) + std::chrono::nanoseconds(changed.tv_nsec);
  return foundation::Date(foundation::Date::TimePoint(moment));
}

std::optional<FileState> PosixFileQueries::state(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return stateOf(status);
}

Result<std::string> PosixFileQueries::linkTarget(const std::string& path) {
  std::string target = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    const auto next = readLink(target);
    if (!next)
      return next.error().code == EINVAL || next.error().code == ENOENT ? Result<std::string>(target) : next;
    const bool isWhole = next.value().starts_with('/');
    const std::string folder = foundation::deletingLastPathComponent(target);
    target = isWhole ? next.value() : foundation::appendingPathComponent(folder, next.value());
  }
  return systemError(ELOOP, path);
}

}  // namespace platform
