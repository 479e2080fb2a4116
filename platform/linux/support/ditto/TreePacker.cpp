#include "platform/linux/support/ditto/TreePacker.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/foundation/Paths.h"

namespace ditto {
namespace {

using platform::UniqueDescriptor;

constexpr const char* kHoldsNothing = "left out: neither a file, a folder nor a link";
constexpr const char* kIsTheArchive = "is the archive that is to be made";

bool canBePacked(const struct stat& status) {
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode);
}

/// Without a wait, whatever has taken the place of what was there a moment ago.
UniqueDescriptor openForReading(int folder, const std::string& name, int flags) {
  constexpr int always = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  return UniqueDescriptor(::openat(folder, name.c_str(), always | flags));
}

/// The names in an open folder, last first; none with errno set on failure.
std::optional<std::vector<std::string>> namesIn(const UniqueDescriptor& folder) {
  UniqueDescriptor listing = openForReading(folder.get(), ".", O_DIRECTORY);
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(listing ? ::fdopendir(listing.get()) : nullptr,
                                                    &::closedir);
  if (!entries) return std::nullopt;
  (void)listing.release();
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* const entry =
        ::readdir(entries.get());  // NOLINT(concurrency-mt-unsafe): of this thread alone
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) return std::nullopt;
  std::sort(names.begin(), names.end(), std::greater<>());
  return names;
}

/// Whether a path ends at a folder whatever is there: then a link there is followed, as POSIX has it.
bool meansAFolder(const std::string& path, const std::string& last) {
  return path.ends_with('/') || last == "." || last == "..";
}

/// What a folder is called that was given as "." or ".."; nothing for the root folder.
std::string nameOfFolder(const std::string& path, const std::string& last) {
  if (last != "." && last != "..") return last == "/" ? "" : last;
  std::error_code failed;
  return std::filesystem::canonical(path, failed).filename().string();
}

}  // namespace

Packed TreePacker::pack(const std::string& source, KeepParent keepParent) {
  source_ = source;
  if (!packSource(source, keepParent)) return Packed::nothing;
  packLevels();
  return isIncomplete_ ? Packed::partly : Packed::whole;
}

bool TreePacker::packSource(const std::string& source, KeepParent keepParent) {
  if (source.empty()) return complain(ENOENT);
  const std::string last = foundation::lastPathComponent(source);
  if (meansAFolder(source, last)) {
    auto folder = openPlace(source);
    if (!folder) return complain(folder.error().code);
    return packTop(std::move(folder.value()), nameOfFolder(source, last), keepParent);
  }
  const std::string around = foundation::deletingLastPathComponent(source);
  const auto parent = openPlace(around.empty() ? "." : around);
  if (!parent) return complain(parent.error().code);
  const int folder = parent.value().get();
  struct stat status {};
  if (::fstatat(folder, last.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return complain(errno);
  if (!canBePacked(status)) return complain(kHoldsNothing);
  if (S_ISDIR(status.st_mode)) {
    return packTop(openForReading(folder, last, O_DIRECTORY), last, keepParent);
  }
  struct stat place {};
  const bool isBesideArchive = ::fstat(folder, &place) == 0 && archive_.liesIn(place);
  if (isBesideArchive && archive_.hasName(last)) return complain(kIsTheArchive);
  name_ = last;
  inSource_ = name_.size();
  return packEntry(folder, last);
}

bool TreePacker::packTop(UniqueDescriptor folder, const std::string& name, KeepParent keepParent) {
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0) return complain(errno);
  if (keepParent == KeepParent::yes && !name.empty()) {
    name_ = name + "/";
    line_.store(entryFor(status), {});
  }
  inSource_ = name_.size();
  return enter(std::move(folder));
}

void TreePacker::packLevels() {
  while (!levels_.empty() && zip_.failure() == 0) {
    Level& level = levels_.back();
    if (level.names.empty()) {
      levels_.pop_back();
      continue;
    }
    const std::string name = std::move(level.names.back());
    level.names.pop_back();
    if (level.holdsArchive && archive_.hasName(name)) continue;
    name_.resize(level.nameLength);
    name_ += name;
    if (!packEntry(level.folder.get(), name)) isIncomplete_ = true;
  }
}

bool TreePacker::packEntry(int folder, const std::string& name) {
  if (name_.size() >= ZipFile::kLongestName) return complain(ENAMETOOLONG);
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return complain(errno);
  if (S_ISREG(status.st_mode)) return packFile(folder, name);
  if (S_ISLNK(status.st_mode)) return packLink(folder, name, status);
  if (S_ISDIR(status.st_mode)) return packFolder(folder, name, status);
  complain(kHoldsNothing);
  return true;
}

bool TreePacker::packFile(int folder, const std::string& name) {
  const UniqueDescriptor file = openForReading(folder, name, 0);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return complain(errno);
  if (!S_ISREG(status.st_mode)) return complain(ESTALE);
  if (status.st_size == 0) {
    line_.store(entryFor(status), {});
    return true;
  }
  const auto reading =
      line_.deflate(entryFor(status), file.get(), static_cast<std::uint64_t>(status.st_size));
  if (reading.failure == 0) return true;
  const std::string reason = std::strerror(reading.failure);
  return complain(reason + "; only the first " + std::to_string(reading.size) + " bytes are in the archive");
}

bool TreePacker::packLink(int folder, const std::string& name, const struct stat& status) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlinkat(folder, name.c_str(), target.data(), target.size());
  if (length < 0) return complain(errno);
  line_.store(entryFor(status), {target.data(), static_cast<std::size_t>(length)});
  return true;
}

/// A folder that cannot be looked into is in the archive nevertheless, so that one sees what is missing.
bool TreePacker::packFolder(int folder, const std::string& name, const struct stat& before) {
  struct stat status = before;
  UniqueDescriptor opened = openForReading(folder, name, O_DIRECTORY);
  const int reason = opened && ::fstat(opened.get(), &status) == 0 ? 0 : errno;
  if (reason == ENOENT || reason == ENOTDIR || reason == ELOOP) return complain(reason);
  name_ += "/";
  line_.store(entryFor(status), {});
  return reason == 0 ? enter(std::move(opened)) : complain(reason);
}

bool TreePacker::enter(UniqueDescriptor folder) {
  struct stat status {};
  auto names = namesIn(folder);
  if (!names || ::fstat(folder.get(), &status) != 0) return complain(errno);
  levels_.push_back({std::move(folder), archive_.liesIn(status), name_.size(), std::move(*names)});
  return true;
}

ZipEntry TreePacker::entryFor(const struct stat& status) const {
  return {.name = name_, .mode = status.st_mode, .modified = status.st_mtim.tv_sec};
}

std::string TreePacker::path() const {
  const std::string below = name_.substr(std::min(inSource_, name_.size()));
  return below.empty() ? source_ : foundation::appendingPathComponent(source_, below);
}

bool TreePacker::complain(const std::string& reason) const {
  std::fprintf(stderr, "ditto: %s: %s\n", path().c_str(), reason.c_str());
  return false;
}

bool TreePacker::complain(int reason) const {
  return complain(std::strerror(reason));
}

}  // namespace ditto
