#include "platform/linux/ApplicationBundles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::PropertyList;

constexpr std::string_view kInsideBundle = ".app/Contents/MacOS/";

/// What the desktop shows as one file. A framework is not among them: its folders are there to be entered.
constexpr std::array<std::string_view, 28> kPackageExtensions = {
    "app",          "bundle",     "component",   "dsym",      "fcpbundle", "imovielibrary", "kext",
    "key",          "mdimporter", "mpkg",        "numbers",   "pages",     "photoslibrary", "pkg",
    "plugin",       "prefpane",   "qlgenerator", "rtfd",      "saver",     "scptd",         "service",
    "sparsebundle", "wdgt",       "workflow",    "xcodeproj", "xpc",       "download",      "docset"};

bool readAll(int file, std::uint64_t limit, std::string& bytes) {
  std::string piece(64UL << 10, '\0');
  while (bytes.size() <= limit) {
    const ssize_t count = ::read(file, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    bytes.append(piece, 0, static_cast<std::size_t>(count));
  }
  return false;
}

bool isTrusted(const struct stat& status, Trust trust) {
  if (trust == Trust::anybody) return true;
  return status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// The dictionary in a file that may belong to anybody; empty for everything else.
PropertyList dictionaryInFile(const std::string& path, Trust trust) {
  const UniqueDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  std::string bytes;
  if (!isTrusted(status, trust) || !readAll(file.get(), kLargestInfoPlist, bytes)) return {};
  auto value = LinuxPropertyLists().parse(bytes);
  if (!value || value.value().as<PropertyList::Dictionary>() == nullptr) return {};
  return std::move(value).value();
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::vector<std::string> sortedNames(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), &::closedir);
  if (!listing) return names;
  while (const dirent* const entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): our own
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    if (names.size() == kMostBundles) break;
  }
  std::sort(names.begin(), names.end());
  return names;
}

void append(std::vector<std::string>& paths, const std::vector<std::string>& more) {
  for (const std::string& path : more) {
    if (paths.size() == kMostBundles) return;
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
  }
}

std::vector<std::string> registeredIn(const std::string& root, const std::string& file, Trust trust) {
  std::vector<std::string> paths;
  for (const std::string& path : registeredApplications(root + file, trust)) {
    if (isFolder(root + path)) paths.push_back(root + path);
  }
  return paths;
}

}  // namespace

std::string ApplicationBundle::identifier() const {
  return information.stringFor("CFBundleIdentifier");
}

bool ApplicationBundle::isCalled(const std::string& name) const {
  return foundation::lastPathComponent(path) == name + ".app" ||
         information.stringFor("CFBundleName") == name;
}

std::string ApplicationBundle::packageType() const {
  return information.stringFor("CFBundlePackageType");
}

std::string ApplicationBundle::executable() const {
  std::string name = information.stringFor("CFBundleExecutable");
  if (!foundation::isItemName(name)) {
    name = foundation::lastPathComponent(foundation::deletingPathExtension(path));
  }
  return path + "/Contents/MacOS/" + name;
}

ApplicationBundle readBundle(const std::string& path) {
  return {path, dictionaryInFile(path + "/Contents/Info.plist", Trust::anybody)};
}

bool hasPackageExtension(const std::string& path) {
  const std::string extension = foundation::lowercase(foundation::pathExtension(path));
  return std::find(kPackageExtensions.begin(), kPackageExtensions.end(), extension) !=
         kPackageExtensions.end();
}

std::optional<std::string> bundleOfExecutable(const std::string& executable) {
  const std::size_t at = executable.rfind(kInsideBundle);
  // A folder that is called ".app" and nothing more is hidden, not a bundle.
  if (at == std::string::npos || at == 0 || executable[at - 1] == '/') return std::nullopt;
  return executable.substr(0, at + std::string_view(".app").size());
}

std::vector<std::string> applicationsInFolder(const std::string& folder) {
  std::vector<std::string> here;
  std::vector<std::string> below;
  for (const std::string& name : sortedNames(folder)) {
    const std::string path = foundation::appendingPathComponent(folder, name);
    if (!isFolder(path)) continue;
    if (name.ends_with(".app")) {
      here.push_back(path);
      continue;
    }
    if (hasPackageExtension(name)) continue;
    for (const std::string& inner : sortedNames(path)) {
      std::string innerPath = foundation::appendingPathComponent(path, inner);
      if (inner.ends_with(".app") && isFolder(innerPath)) below.push_back(std::move(innerPath));
    }
  }
  append(here, below);
  return here;
}

std::vector<std::string> registeredApplications(const std::string& file, Trust trust) {
  const PropertyList registry = dictionaryInFile(file, trust);
  const PropertyList* const list = registry.find("Applications");
  const auto* const entries = list == nullptr ? nullptr : list->as<PropertyList::Array>();
  std::vector<std::string> paths;
  if (entries == nullptr) return paths;
  for (const PropertyList& entry : *entries) {
    const std::string* const path = entry.as<std::string>();
    if (path != nullptr && path->starts_with('/')) paths.push_back(*path);
  }
  return paths;
}

std::vector<std::string> applicationPaths(const std::string& root) {
  UsersAndFolders& users = current().usersAndFolders;
  const bool isRoot = users.userID() == 0;
  std::vector<std::string> paths = applicationsInFolder(root + "/Applications");
  append(paths, applicationsInFolder(root + "/Applications/Utilities"));
  // Root runs tools that lie inside of what is found here: nothing that an ordinary user can put in place.
  const auto home = isRoot ? std::nullopt : std::optional(users.homeDirectory());
  if (home) append(paths, applicationsInFolder(root + *home + "/Applications"));
  append(paths, registeredIn(root, kApplicationRegistry, isRoot ? Trust::rootOnly : Trust::anybody));
  if (home) append(paths, registeredIn(root, *home + kApplicationRegistry, Trust::anybody));
  return paths;
}

}  // namespace platform
