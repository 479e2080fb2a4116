#include "services/TGLocalPaths.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"

namespace {

using platform::SearchPathDirectory;
using platform::SearchPathDomain;

SearchPathDomain searchDomain(Domain domain) {
  return domain == Domain::user ? SearchPathDomain::user : SearchPathDomain::local;
}

bool isRoot() {
  return platform::current().usersAndFolders.userID() == 0;
}

/// Nothing appended to is nothing.
std::optional<std::string> appended(const std::optional<std::string>& path, std::string_view component) {
  if (!path) return std::nullopt;
  return foundation::appendingPathComponent(*path, component);
}

/// What stays of a folder of root's when root's home is taken off its head.
std::string belowRootsHome(std::string path) {
  constexpr std::string_view home = "/var/root";
  constexpr std::string_view privateHome = "/private/var/root";
  if (path.starts_with(home)) path.erase(0, home.size());
  // One character short of the prefix on purpose: existing installations look for "t/Library" there. The
  // second test sees what the first one left, also on purpose.
  if (path.starts_with(privateHome)) path.erase(0, privateHome.size() - 1);
  return path;
}

/// Takes the slash off the end and, on purpose, the last character of the name before it ("/Users/Shared/"
/// gives "/Users/Share"). Characters are UTF-16 units, so half of one beyond the basic plane stays behind and
/// keeps the rest from looking like a folder that it is not.
std::string withoutLastTwoCharacters(std::string path) {
  const std::size_t kept = foundation::characterCount(path) - 2;
  while (foundation::characterCount(path) > kept) path.pop_back();
  return path;
}

using FolderInDomain = std::optional<std::string> (*)(Domain);
using Folder = std::optional<std::string> (*)();

constexpr std::array<FolderInDomain, 7> kProtectedInBothDomains = {
    &TGLocalPaths::applicationDirectory, &TGLocalPaths::adminApplicationDirectory,
    &TGLocalPaths::documentDirectory,    &TGLocalPaths::libraryDirectory,
    &TGLocalPaths::prefsDirectory,       &TGLocalPaths::cacheDirectory,
    &TGLocalPaths::appSupportDirectory};

constexpr std::array<Folder, 4> kProtected = {&TGLocalPaths::desktopDirectory, &TGLocalPaths::userDirectory,
                                              &TGLocalPaths::systemLibraryDirectory,
                                              &TGLocalPaths::localDocumentationDirectory};

/// Plain beginnings of the text, not path components: "/usrdata" is meant too.
constexpr std::array<std::string_view, 4> kProtectedBeginnings = {"/usr", "/var", "/private/var", "/System"};

bool isProtectedFolder(const std::string& path) {
  const auto inEitherDomain = [&](FolderInDomain folder) {
    return path == folder(Domain::user) || path == folder(Domain::local);
  };
  const auto is = [&](Folder folder) { return path == folder(); };
  return std::any_of(kProtectedInBothDomains.begin(), kProtectedInBothDomains.end(), inEitherDomain) ||
         std::any_of(kProtected.begin(), kProtected.end(), is) || path == "/Users/Shared" ||
         path == "/Volumes";
}

}  // namespace

std::optional<std::string> TGLocalPaths::pathForDirectory(SearchPathDirectory directory,
                                                          SearchPathDomain domain) {
  const std::vector<std::string> paths = platform::current().usersAndFolders.searchPaths(directory, domain);
  if (paths.empty()) return std::nullopt;
  if (domain != SearchPathDomain::user || !isRoot()) return paths.front();
  return appended(userDirectory(), belowRootsHome(paths.front()));
}

std::optional<std::string> TGLocalPaths::applicationDirectory(Domain domain) {
  return pathForDirectory(SearchPathDirectory::application, searchDomain(domain));
}

std::optional<std::string> TGLocalPaths::adminApplicationDirectory(Domain domain) {
  return pathForDirectory(SearchPathDirectory::adminApplication, searchDomain(domain));
}

std::optional<std::string> TGLocalPaths::documentDirectory(Domain domain) {
  return pathForDirectory(SearchPathDirectory::document, searchDomain(domain));
}

std::optional<std::string> TGLocalPaths::libraryDirectory(Domain domain) {
  return pathForDirectory(SearchPathDirectory::library, searchDomain(domain));
}

std::optional<std::string> TGLocalPaths::prefsDirectory(Domain domain) {
  return appended(libraryDirectory(domain), "Preferences");
}

std::optional<std::string> TGLocalPaths::cacheDirectory(Domain domain) {
  return pathForDirectory(SearchPathDirectory::caches, searchDomain(domain));
}

std::optional<std::string> TGLocalPaths::appSupportDirectory(Domain domain) {
  return pathForDirectory(SearchPathDirectory::applicationSupport, searchDomain(domain));
}

std::optional<std::string> TGLocalPaths::logDirectory(Domain domain) {
  return appended(libraryDirectory(domain), "Logs");
}

std::optional<std::string> TGLocalPaths::desktopDirectory() {
  return pathForDirectory(SearchPathDirectory::desktop, SearchPathDomain::user);
}

std::optional<std::string> TGLocalPaths::systemLibraryDirectory() {
  return pathForDirectory(SearchPathDirectory::library, SearchPathDomain::system);
}

std::optional<std::string> TGLocalPaths::localDocumentationDirectory() {
  return pathForDirectory(SearchPathDirectory::documentation, SearchPathDomain::local);
}

std::optional<std::string> TGLocalPaths::userDirectory() {
  auto& users = platform::current().usersAndFolders;
  if (!isRoot()) return users.homeDirectory();
  return users.homeDirectoryForUser(currentConsoleUser());
}

std::optional<std::string> TGLocalPaths::movieDirectory() {
  return appended(userDirectory(), "Movies");
}

std::optional<std::string> TGLocalPaths::trashDirectory() {
  return appended(userDirectory(), ".Trash");
}

std::optional<std::string> TGLocalPaths::username() {
  if (!isRoot()) return platform::current().usersAndFolders.userName();
  return currentConsoleUser();
}

std::optional<std::string> TGLocalPaths::currentConsoleUser() {
  auto user = platform::current().usersAndFolders.consoleUser();
  if (user == "loginwindow") return std::nullopt;
  return user;
}

std::string TGLocalPaths::tempDirectory() {
  return platform::current().usersAndFolders.temporaryDirectory();
}

std::string TGLocalPaths::uuid() {
  return platform::current().processInformation.globallyUniqueString();
}

std::string TGLocalPaths::tempFile() {
  return foundation::appendingPathComponent(tempDirectory(), uuid());
}

bool TGLocalPaths::isPathSystemDirectory(const std::optional<std::string>& path, ExactMatch exactMatch) {
  if (!path) return false;
  if (*path == "/") return true;
  if (foundation::characterCount(*path) < 3) return false;
  const std::string folder = path->ends_with('/') ? withoutLastTwoCharacters(*path) : *path;
  if (isProtectedFolder(folder)) return true;
  if (exactMatch == ExactMatch::yes) return false;
  return std::any_of(kProtectedBeginnings.begin(), kProtectedBeginnings.end(),
                     [&](std::string_view beginning) { return folder.starts_with(beginning); });
}

bool TGLocalPaths::isPathOnTimeMachineVolume(const std::optional<std::string>& path) {
  if (!path || !path->starts_with("/Volumes/")) return false;
  const std::vector<std::string> components = foundation::pathComponents(*path);
  return std::find(components.begin(), components.end(), "Backups.backupdb") != components.end();
}
