#include "platform/linux/LinuxFileCopies.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "platform/posix/TreeCopy.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

Result<UniqueDescriptor> openParent(const std::string& path) {
  const std::string parent = foundation::deletingLastPathComponent(path);
  UniqueDescriptor folder(::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return systemError(errno, path);
  return folder;
}

/// Nobody can guess it and occupy it beforehand.
std::string temporaryName() {
  std::array<unsigned char, 12> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  std::string name = ".quillmend.";
  for (const unsigned char byte : bytes) name += foundation::stringWithFormat("%02x", unsigned{byte});
  return name;
}

/// A folder beside the destination that only this process's account can enter; gone with the object, and all
/// that is still in it.
class CopyFolder {
 public:
  explicit CopyFolder(int parent) : parent_(parent), name_(temporaryName()) {
    if (::mkdirat(parent, name_.c_str(), 0700) != 0) return;
    folder_.reset(::openat(parent, name_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  ~CopyFolder() {
    if (folder_) static_cast<void>(removeItem(parent_, name_));
  }
  CopyFolder(const CopyFolder&) = delete;
  CopyFolder& operator=(const CopyFolder&) = delete;

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(folder_); }
  [[nodiscard]] int descriptor() const { return folder_.get(); }

 private:
  int parent_;
  std::string name_;
  UniqueDescriptor folder_;
};

bool isTaken(int folder, const std::string& name) {
  struct stat status {};
  return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

/// Answers 0 or an errno value.
int renameExclusively(int from, const std::string& name, int to, const std::string& newName) {
  if (::renameat2(from, name.c_str(), to, newName.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  if (isTaken(to, newName)) return EEXIST;
  return ::renameat(from, name.c_str(), to, newName.c_str()) == 0 ? 0 : errno;
}

}  // namespace

Result<void> copyToPath(const std::string& from, const std::string& to) {
  const std::string name = foundation::lastPathComponent(from);
  const std::string newName = foundation::lastPathComponent(to);
  auto source = openParent(from);
  if (!source) return source.error();
  auto target = openParent(to);
  if (!target) return target.error();
  if (isTaken(target.value().get(), newName)) return systemError(EEXIST, to);
  const CopyFolder folder(target.value().get());
  if (!folder.isOpen()) return systemError(errno, to);
  if (auto copied = copyItem(source.value().get(), name, folder.descriptor()); !copied) {
    return systemError(copied.error().code, from);
  }
  const int reason = renameExclusively(folder.descriptor(), name, target.value().get(), newName);
  if (reason != 0) return systemError(reason, to);
  return {};
}

}  // namespace platform
