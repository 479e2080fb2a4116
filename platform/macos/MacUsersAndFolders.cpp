#include "platform/macos/MacUsersAndFolders.h"

#include <sysdir.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>

#include "platform/posix/Accounts.h"
#include "platform/posix/ConsoleUserName.h"

namespace platform {
namespace {

/// "/" stays as it is.
std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

std::string homeInDatabase(uid_t user) {
  const auto account = accountWithID(user);
  return account && account->home.starts_with('/') ? withoutTrailingSlashes(account->home) : "/";
}

std::string homeInEnvironment() {
  const char* const value = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe): never set while it runs
  const std::string home = value == nullptr ? "" : value;
  return home.starts_with('/') ? withoutTrailingSlashes(home) : "";
}

/// The system names a user's folders "~/…".
std::string expanded(const std::string& path, const std::string& home) {
  return path.starts_with("~/") ? (home == "/" ? "" : home) + path.substr(1) : path;
}

}  // namespace

uid_t MacUsersAndFolders::userID() {
  return ::getuid();
}

bool MacUsersAndFolders::setUserID(uid_t user) {
  return ::setuid(user) == 0;
}

std::string MacUsersAndFolders::homeDirectory() {
  std::string home = userID() == 0 ? "" : homeInEnvironment();
  return home.empty() ? homeInDatabase(userID()) : home;
}

std::string MacUsersAndFolders::userName() {
  const auto account = accountWithID(userID());
  return account ? account->name : std::to_string(userID());
}

std::optional<std::string> MacUsersAndFolders::homeDirectoryForUser(const std::optional<std::string>& name) {
  if (!name) return homeDirectory();
  const auto account = accountNamed(*name);
  if (!account || !account->home.starts_with('/')) return std::nullopt;
  return withoutTrailingSlashes(account->home);
}

std::optional<std::string> MacUsersAndFolders::consoleUser() {
  return platform::consoleUser();
}

std::vector<std::string> MacUsersAndFolders::searchPaths(SearchPathDirectory directory,
                                                         SearchPathDomain domain) {
  const std::string home = userID() == 0 ? "/var/root" : homeDirectory();
  std::vector<std::string> paths;
  std::array<char, PATH_MAX> path{};
  auto state = sysdir_start_search_path_enumeration(static_cast<sysdir_search_path_directory_t>(directory),
                                                    static_cast<sysdir_search_path_domain_mask_t>(domain));
  while ((state = sysdir_get_next_search_path_enumeration(state, path.data())) != 0) {
    paths.push_back(expanded(path.data(), home));
  }
  return paths;
}

std::string MacUsersAndFolders::temporaryDirectory() {
  std::array<char, PATH_MAX> path{};
  const std::size_t length = ::confstr(_CS_DARWIN_USER_TEMP_DIR, path.data(), path.size());
  if (length == 0 || length > path.size()) return "/private/tmp";
  return withoutTrailingSlashes(path.data());
}

}  // namespace platform
