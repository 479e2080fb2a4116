#include "platform/posix/PosixFolderQueries.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "platform/foundation/Paths.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

UniqueDescriptor openFolder(const std::string& path) {
  return UniqueDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
}

EntryKind kindOf(unsigned char type) {
  switch (type) {
    case DT_DIR:
      return EntryKind::folder;
    case DT_LNK:
      return EntryKind::link;
    case DT_UNKNOWN:
      return EntryKind::unknown;
    default:
      return EntryKind::other;
  }
}

ItemIdentity identityOf(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_dev), status.st_ino};
}

std::uint64_t sizeOf(const struct stat& status) {
  return static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
}

/// Sums up folders. What a folder came to is kept: a folder that many links lead to is read once and counts
/// each time, and one that is met inside itself has nothing to add yet.
class FolderSums {
 public:
  explicit FolderSums(ReadFolder* read) : read_(read) {}

  std::uint64_t folder(const std::string& path) {
    UniqueDescriptor descriptor = openFolder(path);
    struct stat status {};
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0) return 0;
    const auto [known, isNew] = sums_.try_emplace(identityOf(status), 0);
    if (!isNew) return known->second;
    std::vector<std::string> below;
    std::uint64_t sum = ownEntries(descriptor.get(), below);
    descriptor.reset();
    for (const std::string& name : below) sum += folder(foundation::appendingPathComponent(path, name));
    known->second = sum;
    return sum;
  }

 private:
  std::uint64_t ownEntries(int folder, std::vector<std::string>& below) {
    std::uint64_t sum = 0;
    // What is missing counts nothing.
    static_cast<void>(read_(folder, [&](const char* name, unsigned char type) {
      if (type == DT_DIR || ((type == DT_LNK || type == DT_UNKNOWN) && leadsToFolder(folder, name))) {
        below.emplace_back(name);
      } else {
        struct stat status {};
        if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0) sum += sizeOf(status);
      }
    }));
    return sum;
  }

  static bool leadsToFolder(int folder, const char* name) {
    struct stat status {};
    return ::fstatat(folder, name, &status, 0) == 0 && S_ISDIR(status.st_mode);
  }

  ReadFolder* read_;
  std::map<ItemIdentity, std::uint64_t> sums_;  // its entries stay where they are while others come
};

}  // namespace

Result<FolderListing> PosixFolderQueries::entries(const std::string& path) {
  const UniqueDescriptor folder = openFolder(path);
  if (!folder) return systemError(errno, path);
  FolderListing found;
  const int reason =
      read_(folder.get(), [&](const char* name, unsigned char type) { found.add(name, kindOf(type)); });
  if (reason != 0) return systemError(reason, path);
  found.sort();
  return found;
}

std::uint64_t PosixFolderQueries::totalSize(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return FolderSums(read_).folder(path);
  return ::lstat(path.c_str(), &status) == 0 ? sizeOf(status) : 0;
}

std::optional<ItemIdentity> PosixFolderQueries::identity(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return identityOf(status);
}

}  // namespace platform
