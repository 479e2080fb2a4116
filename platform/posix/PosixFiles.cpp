#include "platform/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

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

}  // namespace platform
