#include "platform/linux/Recycling.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>

#include "platform/foundation/Paths.h"
#include "platform/linux/ExclusiveRename.h"
#include "platform/linux/GuardedFolders.h"
#include "platform/linux/TreeCopy.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr int kMostAttempts = 100'000;
constexpr std::size_t kLongestName = 255;

bool isItemName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

/// Cut to a length without leaving half a UTF-8 character.
std::string shortened(std::string text, std::size_t length) {
  if (text.size() <= length) return text;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) --length;
  text.resize(length);
  return text;
}

/// Answers 0 or an errno value; EXDEV when the trash lies on another file system.
int moveToFreeName(int from, const std::string& name, int trash) {
  for (int attempt = 1; attempt <= kMostAttempts; ++attempt) {
    const auto moved = renameWithoutReplacing(from, name, trash, nameInTrash(name, attempt), name);
    if (moved) return 0;
    if (moved.error().code != EEXIST) return moved.error().code;
  }
  return EEXIST;
}

/// A folder in the trash that only this process can enter; gone with the object, and all that is still in it.
class StagingFolder {
 public:
  explicit StagingFolder(int trash) : trash_(trash), name_(".quillmend-" + std::to_string(randomNumber())) {
    if (::mkdirat(trash, name_.c_str(), 0700) != 0) return;
    made_ = true;
    folder_.reset(::openat(trash, name_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    const bool isOurs = folder_ && ::fstat(folder_.get(), &status) == 0 && status.st_uid == ::geteuid();
    if (isOurs && (status.st_mode & 077U) == 0) return;
    folder_.reset();
    errno = EPERM;
  }
  ~StagingFolder() {
    if (made_ && folder_ && !content_.empty()) static_cast<void>(removeItem(folder_.get(), content_));
    if (made_) ::unlinkat(trash_, name_.c_str(), AT_REMOVEDIR);
  }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  [[nodiscard]] int descriptor() const { return folder_.get(); }
  void willHold(const std::string& name) { content_ = name; }

 private:
  static unsigned randomNumber() { return std::random_device()(); }

  int trash_;
  std::string name_;
  std::string content_;
  bool made_ = false;
  UniqueDescriptor folder_;
};

Result<void> moveByCopy(int from, const std::string& name, int trash) {
  StagingFolder staging(trash);
  if (staging.descriptor() < 0) return systemError(errno, name);
  staging.willHold(name);
  auto copied = copyItem(from, name, staging.descriptor());
  if (!copied) return copied.error();
  if (const int reason = moveToFreeName(staging.descriptor(), name, trash); reason != 0) {
    return systemError(reason, name);
  }
  if (::fsync(trash) != 0) return systemError(errno, name);
  return removeCopied(from, copied.value());
}

Result<void> recycleItem(int source, const std::string& name, int trash) {
  if (!isItemName(name)) return systemError(EINVAL, name);
  const int reason = moveToFreeName(source, name, trash);
  if (reason == EXDEV) return moveByCopy(source, name, trash);
  if (reason != 0) return systemError(reason, name);
  return {};
}

}  // namespace

std::string nameInTrash(const std::string& name, int attempt) {
  if (attempt == 1) return name;
  const std::string extension = foundation::pathExtension(name);
  const std::string end = " " + std::to_string(attempt) + (extension.empty() ? "" : "." + extension);
  const std::string stem = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
  return shortened(stem, kLongestName - std::min(end.size(), kLongestName)) + end;
}

Result<void> recycleItems(const std::string& sourceFolder, const std::string& trashFolder,
                          const std::vector<std::string>& names) {
  auto source = openGuardedFolder(sourceFolder);
  if (!source) return source.error();
  auto trash = openTrashFolder(trashFolder);
  if (!trash) return trash.error();
  for (const std::string& name : names) {
    if (auto moved = recycleItem(source.value().get(), name, trash.value().get()); !moved) return moved;
  }
  return {};
}

}  // namespace platform
