#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"
#include "services/UsablePath.h"

namespace {

using Path = TGFileManager::Path;

/// The paths of what a folder holds; none for one that cannot be listed.
TGFileManager::Paths entriesOf(const Path& folder) {
  TGFileManager::Paths paths;
  if (!isUsable(folder)) return paths;
  const auto names = platform::current().fileQueries.contentsOfDirectory(*folder);
  if (!names) return paths;
  for (const std::string& name : names.value()) {
    paths.push_back(foundation::appendingPathComponent(*folder, name));
  }
  return paths;
}

void forEachFileBelow(const Path& folder, void (*visit)(const Path&)) {
  for (const std::string& entry : entriesOf(folder)) {
    if (TGFileManager::isDirectoryAtPath(entry)) {
      forEachFileBelow(entry, visit);
    } else {
      visit(entry);
    }
  }
}

}  // namespace

std::string TGFileManager::createDirectoryStructure(const Path& path, const Path& destination) {
  const std::string whole = path.value_or("");
  const bool isFolder = isDirectoryAtPath(path) && !isPackageAtPath(path);
  const std::string folder = isFolder ? whole : foundation::deletingLastPathComponent(whole);
  std::string mirror = foundation::appendingPathComponent(destination.value_or(""), folder);
  if (!fileExistsAtPath(mirror)) createDirectory(mirror);
  return mirror;
}

void TGFileManager::lockFolder(const Path& folder) {
  forEachFileBelow(folder, &TGFileManager::lockFile);
}

void TGFileManager::unlockFolder(const Path& folder) {
  forEachFileBelow(folder, &TGFileManager::unlockFile);
}
