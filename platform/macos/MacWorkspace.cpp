#include "platform/macos/MacWorkspace.h"

#include <sys/stat.h>

#include "platform/Platform.h"
#include "platform/macos/ConsoleSession.h"
#include "platform/posix/Recycling.h"

namespace platform {
namespace {

constexpr const char* kOpen = "/usr/bin/open";

bool isRoot() {
  return current().usersAndFolders.userID() == 0;
}

bool isThere(const std::string& path) {
  struct stat status {};
  return path.starts_with('/') && ::stat(path.c_str(), &status) == 0;
}

}  // namespace

bool MacWorkspace::openFile(const std::string& path) {
  if (!isThere(path)) return false;
  return isRoot() ? startForUser({kOpen, path}) : AppKitWorkspace::openFile(path);
}

bool MacWorkspace::openFile(const std::string& path, const std::string& application) {
  if (!isThere(path) || application.empty()) return false;
  return isRoot() ? startForUser({kOpen, "-a", application, path})
                  : AppKitWorkspace::openFile(path, application);
}

bool MacWorkspace::openURL(const std::string& address) {
  // open(1) would take it for an option.
  if (address.empty() || address.starts_with('-')) return false;
  return isRoot() ? startForUser({kOpen, address}) : AppKitWorkspace::openURL(address);
}

foundation::Result<void> MacWorkspace::recycle(const std::string& sourceFolder,
                                               const std::string& trashFolder,
                                               const std::vector<std::string>& names) {
  return isRoot() ? recycleItems(sourceFolder, trashFolder, names)
                  : AppKitWorkspace::recycle(sourceFolder, trashFolder, names);
}

}  // namespace platform
