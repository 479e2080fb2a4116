#include "services/TGFileManager.h"

#include "platform/Platform.h"

bool TGFileManager::fileExistsAtPath(const std::optional<std::string>& path) {
  return path && platform::current().fileQueries.exists(*path);
}

bool TGFileManager::isDirectoryAtPath(const std::optional<std::string>& path) {
  return path && platform::current().fileQueries.isDirectory(*path);
}

bool TGFileManager::isPackageAtPath(const std::optional<std::string>& path) {
  return path && platform::current().workspace.isFilePackage(*path);
}
