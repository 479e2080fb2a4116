#include "platform/posix/Recycling.h"

#include <algorithm>
#include <cerrno>

#include "platform/foundation/Paths.h"
#include "platform/posix/ExclusiveRename.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/TreeCopy.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr int kMostAttempts = 100'000;
constexpr std::size_t kLongestName = 255;

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

Result<void> moveToOtherFileSystem(int from, const std::string& name, int trash) {
  return moveByCopy(from, name, trash, name, [trash](int folder, const std::string& copy) -> Result<void> {
    const int reason = moveToFreeName(folder, copy, trash);
    return reason == 0 ? Result<void>() : systemError(reason, copy);
  });
}

Result<void> recycleItem(int source, const std::string& name, int trash) {
  if (!foundation::isItemName(name)) return systemError(EINVAL, name);
  const int reason = moveToFreeName(source, name, trash);
  if (reason == EXDEV) return moveToOtherFileSystem(source, name, trash);
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
