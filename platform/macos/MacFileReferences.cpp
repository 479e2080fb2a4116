#include "platform/macos/MacFileReferences.h"

#include <fcntl.h>
#include <sys/fsgetpath.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/foundation/Paths.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr std::uint32_t kVersion = 1;  // all zeros stand for no item

/// What lies in the 80 bytes.
struct Content {
  std::uint32_t version = 0;
  std::uint32_t reserved = 0;
  fsid_t volume{};
  std::uint64_t number = 0;
  std::int64_t birthSeconds = 0;
  std::int64_t birthNanoseconds = 0;
};
static_assert(sizeof(Content) <= sizeof(FSRef));

/// The volume of the folder that an item lies in is the item's, unless a volume is mounted at the item: then
/// it is that one's.
int volumeOf(const std::string& path, const struct stat& status, fsid_t& volume) {
  const std::string around = S_ISDIR(status.st_mode) ? path : foundation::deletingLastPathComponent(path);
  struct statfs mount {};
  if (::statfs(around.empty() ? "." : around.c_str(), &mount) != 0) return errno;
  volume = mount.f_fsid;
  return 0;
}

/// 0 or an errno value.
int describe(const std::string& path, Content& content) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errno;
  content.version = kVersion;
  content.number = status.st_ino;
  content.birthSeconds = status.st_birthtimespec.tv_sec;
  content.birthNanoseconds = status.st_birthtimespec.tv_nsec;
  return volumeOf(path, status, content.volume);
}

bool isSameItem(const Content& one, const Content& other) {
  return one.volume.val[0] == other.volume.val[0] && one.volume.val[1] == other.volume.val[1] &&
         one.number == other.number && one.birthSeconds == other.birthSeconds &&
         one.birthNanoseconds == other.birthNanoseconds;
}

}  // namespace

Result<FSRef> MacFileReferences::reference(const std::string& path) {
  Content content;
  if (const int reason = describe(path, content); reason != 0) return systemError(reason, path);
  FSRef reference;
  std::memcpy(reference.hidden.data(), &content, sizeof content);
  return reference;
}

Result<std::string> MacFileReferences::path(const FSRef& reference) {
  Content wanted;
  std::memcpy(&wanted, reference.hidden.data(), sizeof wanted);
  if (wanted.version != kVersion) return systemError(ENOENT, "");
  std::array<char, PATH_MAX> path{};
  if (::fsgetpath(path.data(), path.size(), &wanted.volume, wanted.number) < 0)
    return systemError(ENOENT, "");
  Content found;
  if (describe(path.data(), found) != 0 || !isSameItem(wanted, found))
    return systemError(ENOENT, path.data());
  return std::string(path.data());
}

}  // namespace platform
