#include "helpers/ProtectedFolders.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <string_view>

#include "helpers/Tool.h"
#include "platform/foundation/Paths.h"
#include "platform/posix/FileSystemCalls.h"

namespace helpers {
namespace {

using foundation::Result;

constexpr std::array kSystemFolders = std::to_array<std::string_view>({
    "/Applications",
    "/Applications/Utilities",
    "/Developer",
    "/Network",
    "/Volumes",
    "/cores",
    "/Library",
    "/Library/Application Support",
    "/Library/Caches",
    "/Library/Documentation",
    "/Library/Extensions",
    "/Library/Fonts",
    "/Library/Frameworks",
    "/Library/Internet Plug-Ins",
    "/Library/Keychains",
    "/Library/LaunchAgents",
    "/Library/LaunchDaemons",
    "/Library/Logs",
    "/Library/PreferencePanes",
    "/Library/Preferences",
    "/Library/Printers",
    "/Library/PrivilegedHelperTools",
    "/Library/QuickTime",
    "/Library/Receipts",
    "/Library/Scripts",
    "/Library/StartupItems",
    "/System",
    "/System/Library",
    "/System/Library/CoreServices",
    "/System/Library/Extensions",
    "/System/Library/Frameworks",
    "/System/Library/LaunchAgents",
    "/System/Library/LaunchDaemons",
    "/System/Library/PreferencePanes",
    "/System/Library/PrivateFrameworks",
    "/System/Library/StartupItems",
    "/Users",
    "/Users/Shared",
    "/Users/Shared/Library",
    "/Users/Shared/Library/Application Support",
    "/Users/Shared/Library/Preferences",
    "/Users/Shared/Library/Caches",
    "/bin",
    "/sbin",
    "/usr",
    "/usr/bin",
    "/usr/include",
    "/usr/lib",
    "/usr/lib32",
    "/usr/lib64",
    "/usr/libexec",
    "/usr/local",
    "/usr/local/bin",
    "/usr/local/lib",
    "/usr/local/sbin",
    "/usr/local/share",
    "/usr/sbin",
    "/usr/share",
    "/private",
    "/private/etc",
    "/private/tmp",
    "/private/var",
    "/private/var/db",
    "/private/var/folders",
    "/private/var/log",
    "/private/var/root",
    "/private/var/run",
    "/private/var/spool",
    "/private/var/tmp",
    "/private/var/vm",
    "/etc",
    "/tmp",
    "/var",
    "/var/backups",
    "/var/cache",
    "/var/db",
    "/var/folders",
    "/var/lib",
    "/var/local",
    "/var/log",
    "/var/mail",
    "/var/opt",
    "/var/root",
    "/var/run",
    "/var/spool",
    "/var/tmp",
    "/var/vm",
    "/boot",
    "/dev",
    "/home",
    "/lib",
    "/lib32",
    "/lib64",
    "/libx32",
    "/media",
    "/mnt",
    "/opt",
    "/proc",
    "/root",
    "/run",
    "/srv",
    "/sys",
});

constexpr std::array kHomeFolders = std::to_array<std::string_view>({
    "",
    "Applications",
    "Desktop",
    "Documents",
    "Downloads",
    "Library",
    "Library/Application Support",
    "Library/Caches",
    "Library/Keychains",
    "Library/LaunchAgents",
    "Library/Logs",
    "Library/Preferences",
    "Movies",
    "Music",
    "Pictures",
    "Public",
    "Sites",
    ".Trash",
});

bool isInside(std::string_view path, std::string_view folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

/// Where "/Users/x/Library" lies in the home "/Users/x": "Library". Nothing for a path outside such homes.
std::optional<std::string_view> placeInHome(std::string_view path) {
  for (const std::string_view parent : {"/Users/", "/home/"}) {
    if (!path.starts_with(parent) || path.size() == parent.size()) continue;
    const std::size_t slash = path.find('/', parent.size());
    return slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
  }
  return std::nullopt;
}

bool isWholeVolume(std::string_view path) {
  constexpr std::string_view kVolumes = "/Volumes/";
  return path.starts_with(kVolumes) && path.find('/', kVolumes.size()) == std::string_view::npos;
}

bool isHomeFolder(std::string_view place) {
  return std::find(kHomeFolders.begin(), kHomeFolders.end(), place) != kHomeFolders.end();
}

}  // namespace

ProtectedFolders::ProtectedFolders(const Surroundings& surroundings)
    : root_(surroundings.root.get()), paths_(kSystemFolders.begin(), kSystemFolders.end()) {
  std::set<std::string> homes;
  for (const Account& account : surroundings.accounts) {
    if (homes.insert(account.home).second) addHome(account.home);
  }
}

void ProtectedFolders::addHome(const std::string& home) {
  std::string spelt;
  for (const std::string& component : foundation::pathComponents(home)) {
    spelt = foundation::appendingPathComponent(spelt, component);
  }
  if (!spelt.starts_with('/') || spelt == "/") return;
  for (const std::string_view place : kHomeFolders) {
    paths_.push_back(foundation::appendingPathComponent(spelt, place));
  }
}

bool ProtectedFolders::containsPath(const std::string& path) const {
  for (const std::string_view pseudo : {"/dev", "/proc", "/sys"}) {
    if (isInside(path, pseudo)) return true;
  }
  if (const auto place = placeInHome(path); place && isHomeFolder(*place)) return true;
  if (isWholeVolume(path)) return true;
  return std::any_of(paths_.begin(), paths_.end(),
                     [&path](const std::string& folder) { return folder == path || isInside(folder, path); });
}

/// What lies below a folder that is not there is not looked for: most accounts of a system have no home.
bool ProtectedFolders::containsFile(const FileStatus& status) const {
  std::string_view missing;
  for (const std::string& folder : paths_) {
    if (!missing.empty() && isInside(folder, missing)) continue;
    struct stat other {};
    if (fstatat(root_, folder.c_str() + 1, &other, platform::kWithoutMounting) != 0) {
      if (errno == ENOENT || errno == ENOTDIR) missing = folder;
    } else if (other.st_ino == status.inode && platform::deviceNumber(other.st_dev) == status.device) {
      return true;
    }
  }
  return false;
}

bool ProtectedFolders::contains(const PathEntry& entry) const {
  if (containsPath(entry.path)) return true;
  if (!entry.status().isFolder()) return false;
  return entry.status().isSameFile(entry.levels.front().status) || containsFile(entry.status());
}

Result<PathEntry> locateUnprotected(const Surroundings& surroundings, const std::string& path,
                                    LastLink lastLink) {
  Result<PathEntry> entry = locate(surroundings, path, lastLink);
  if (entry && ProtectedFolders(surroundings).contains(entry.value())) {
    return errorWithReason(EPERM, path, "refused: it is a protected folder");
  }
  return entry;
}

}  // namespace helpers
