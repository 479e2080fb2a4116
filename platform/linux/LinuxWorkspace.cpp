#include "platform/linux/LinuxWorkspace.h"

#include <sys/stat.h>

#include <optional>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/linux/ApplicationBundles.h"
#include "platform/linux/ConsoleUserCommand.h"
#include "platform/posix/LaunchAndLeave.h"
#include "platform/posix/Recycling.h"

namespace platform {
namespace {

using Arguments = std::vector<std::string>;

bool isThere(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isApplication(const std::string& path) {
  return foundation::pathExtension(path) == "app" && isFolder(path);
}

/// Starts a program of the desktop, which is the console user's, not root's.
bool launchForUser(const std::string& program, const Arguments& arguments) {
  if (!current().subprocesses.isExecutableFile(program)) return false;
  if (current().usersAndFolders.userID() != 0) return launchAndLeave(program, arguments);
  std::vector<std::string> command = {program};
  command.insert(command.end(), arguments.begin(), arguments.end());
  auto asUser = commandForConsoleUser(current().mainBundle.path() + "/Contents/SharedSupport",
                                      current().usersAndFolders.consoleUser(), command);
  if (!asUser) return false;
  const std::string tool = asUser->front();
  asUser->erase(asUser->begin());
  return launchAndLeave(tool, *asUser);
}

bool openByDesktop(const std::string& what) {
  for (const char* const tool : {"/usr/local/bin/xdg-open", "/usr/bin/xdg-open"}) {
    if (current().subprocesses.isExecutableFile(tool)) return launchForUser(tool, {what});
  }
  return false;
}

std::optional<ApplicationBundle> applicationCalled(const std::string& name, const std::string& root) {
  if (name.starts_with('/')) return isApplication(name) ? std::optional(readBundle(name)) : std::nullopt;
  const std::string plain = name.ends_with(".app") ? foundation::deletingPathExtension(name) : name;
  for (const std::string& path : applicationPaths(root)) {
    ApplicationBundle bundle = readBundle(path);
    if (bundle.isCalled(plain)) return bundle;
  }
  return std::nullopt;
}

}  // namespace

bool LinuxWorkspace::openFile(const std::string& path) {
  if (!path.starts_with('/') || !isThere(path)) return false;
  if (isApplication(path)) return launchForUser(readBundle(path).executable(), {});
  return openByDesktop(path);
}

bool LinuxWorkspace::openFile(const std::string& path, const std::string& application) {
  if (!path.starts_with('/') || !isThere(path)) return false;
  const auto bundle = applicationCalled(application, root_);
  return bundle && launchForUser(bundle->executable(), {path});
}

bool LinuxWorkspace::openURL(const std::string& address) {
  // xdg-open would take it for an option.
  if (address.empty() || address.starts_with('-')) return false;
  return openByDesktop(address);
}

foundation::Result<void> LinuxWorkspace::recycle(const std::string& sourceFolder,
                                                 const std::string& trashFolder,
                                                 const std::vector<std::string>& names) {
  return recycleItems(sourceFolder, trashFolder, names);
}

bool LinuxWorkspace::isFilePackage(const std::string& path) {
  if (!isFolder(path)) return false;
  if (hasPackageExtension(path)) return true;
  const std::string type = readBundle(path).packageType();
  return !type.empty() && type != "FMWK";
}

}  // namespace platform
