#include "services/TGFileManager.h"

#include "platform/Platform.h"
#include "services/UsablePath.h"

bool TGFileManager::fileExistsAtPath(const Path& path) {
  return isUsable(path) && platform::current().fileQueries.exists(*path);
}

bool TGFileManager::isDirectoryAtPath(const Path& path) {
  return isUsable(path) && platform::current().fileQueries.isDirectory(*path);
}

bool TGFileManager::isPackageAtPath(const Path& path) {
  return isUsable(path) && platform::current().workspace.isFilePackage(*path);
}

bool TGFileManager::isSymbolicLinkAtPath(const Path& path) {
  return isUsable(path) && platform::current().fileAttributes.isSymbolicLink(*path);
}

bool TGFileManager::isFileLocked(const Path& path) {
  return isUsable(path) && platform::current().fileAttributes.isImmutable(*path);
}

void TGFileManager::lockFile(const Path& path) {
  if (isUsable(path))
    static_cast<void>(platform::current().fileAttributes.setImmutable(*path, platform::Immutable::yes));
}

void TGFileManager::unlockFile(const Path& path) {
  if (isUsable(path))
    static_cast<void>(platform::current().fileAttributes.setImmutable(*path, platform::Immutable::no));
}
