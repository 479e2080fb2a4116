#include "platform/linux/LinuxUsersAndFolders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/linux/ConsoleUser.h"
#include "platform/linux/ShellAssignments.h"
#include "platform/posix/Accounts.h"
#include "platform/posix/PosixFiles.h"

namespace platform {
namespace {

using Paths = std::vector<std::string>;

/// "/" stays as it is.
std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

/// An environment variable that holds an absolute path, without trailing slashes; "" for anything else.
std::string pathFromEnvironment(const char* variable) {
  const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): never set while it runs
  std::string path = value == nullptr ? "" : value;
  if (!path.starts_with('/')) return "";
  return withoutTrailingSlashes(std::move(path));
}

std::string homeInDatabase(uid_t user) {
  const auto account = accountWithID(user);
  return account && account->home.starts_with('/') ? withoutTrailingSlashes(account->home) : "/";
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// A folder of root's, in which nobody can replace what root makes there.
bool isSafeForRoot(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != 0) return false;
  const bool othersWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return !othersWrite || (status.st_mode & S_ISVTX) != 0;
}

/// What the desktop shows as such (xdg-user-dirs, user-dirs.dirs(5)); "" where nothing is said. An absolute
/// path, or one below the home folder, which is the only variable there is.
std::string configuredDesktop(const std::string& home) {
  const std::string given = pathFromEnvironment("XDG_CONFIG_HOME");
  const std::string folder = given.empty() ? home + "/.config" : given;
  constexpr std::uint64_t kLongest = 64U << 10;
  const auto file = PosixFileQueries().readFile(folder + "/user-dirs.dirs", kLongest);
  if (!file) return "";
  std::string path = shellAssignment(file.value(), "XDG_DESKTOP_DIR", {{"HOME", home}}).value_or("");
  return path.starts_with('/') ? withoutTrailingSlashes(std::move(path)) : "";
}

Paths userPaths(SearchPathDirectory directory, const std::string& home) {
  switch (directory) {
    case SearchPathDirectory::application:
      return {home + "/Applications"};
    case SearchPathDirectory::adminApplication:
      return {home + "/Applications/Utilities"};
    case SearchPathDirectory::library:
      return {home + "/Library"};
    case SearchPathDirectory::documentation:
      return {home + "/Library/Documentation"};
    case SearchPathDirectory::document:
      return {home + "/Documents"};
    case SearchPathDirectory::desktop:
      return {home + "/Desktop"};
    case SearchPathDirectory::caches:
      return {home + "/Library/Caches"};
    case SearchPathDirectory::applicationSupport:
      return {home + "/Library/Application Support"};
  }
  return {};
}

bool isUsersOnly(SearchPathDirectory directory) {
  return directory == SearchPathDirectory::document || directory == SearchPathDirectory::desktop;
}

bool isApplications(SearchPathDirectory directory) {
  return directory == SearchPathDirectory::application || directory == SearchPathDirectory::adminApplication;
}

}  // namespace

uid_t LinuxUsersAndFolders::userID() {
  return ::getuid();
}

bool LinuxUsersAndFolders::setUserID(uid_t user) {
  return ::setuid(user) == 0;
}

std::string LinuxUsersAndFolders::homeDirectory() {
  if (userID() != 0) {
    std::string home = pathFromEnvironment("HOME");
    if (!home.empty()) return home;
  }
  return homeInDatabase(userID());
}

std::string LinuxUsersAndFolders::userName() {
  const auto account = accountWithID(userID());
  return account ? account->name : std::to_string(userID());
}

std::optional<std::string> LinuxUsersAndFolders::homeDirectoryForUser(
    const std::optional<std::string>& name) {
  if (!name) return homeDirectory();
  auto account = accountNamed(*name);
  if (!account || !account->home.starts_with('/')) return std::nullopt;
  return withoutTrailingSlashes(std::move(account->home));
}

std::optional<std::string> LinuxUsersAndFolders::consoleUser() {
  return platform::consoleUser();
}

std::vector<std::string> LinuxUsersAndFolders::searchPaths(SearchPathDirectory directory,
                                                           SearchPathDomain domain) {
  switch (domain) {
    case SearchPathDomain::user: {
      if (userID() == 0) return userPaths(directory, "/var/root");
      std::string home = homeDirectory();
      if (home == "/") home.clear();
      std::string desktop = directory == SearchPathDirectory::desktop ? configuredDesktop(home) : "";
      return desktop.empty() ? userPaths(directory, home) : Paths{std::move(desktop)};
    }
    case SearchPathDomain::local:
      return isUsersOnly(directory) ? Paths{} : userPaths(directory, "");
    case SearchPathDomain::system:
      // The system's applications lie in the local folders.
      return isUsersOnly(directory) || isApplications(directory) ? Paths{} : userPaths(directory, "/System");
  }
  return {};
}

std::string LinuxUsersAndFolders::temporaryDirectory() {
  if (userID() == 0) return isSafeForRoot(root_ + "/private/tmp") ? root_ + "/private/tmp" : root_ + "/tmp";
  std::string given = pathFromEnvironment("TMPDIR");
  return !given.empty() && isDirectory(given) ? given : root_ + "/tmp";
}

}  // namespace platform
