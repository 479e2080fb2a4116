#include <map>
#include <set>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGFileManager.h"
#include "services/UsablePath.h"

namespace {

using platform::ItemIdentity;
using Path = TGFileManager::Path;
using Paths = TGFileManager::Paths;

/// The names in a folder; none for one that cannot be listed.
Paths namesIn(const Path& folder) {
  if (!isUsable(folder)) return {};
  auto names = platform::current().fileQueries.contentsOfDirectory(*folder);
  return names ? std::move(names).value() : Paths();
}

Paths entriesOf(const Path& folder) {
  Paths paths = namesIn(folder);
  for (std::string& name : paths) name = foundation::appendingPathComponent(*folder, name);
  return paths;
}

std::optional<ItemIdentity> identityOf(const Path& path) {
  return isUsable(path) ? platform::current().folderQueries.identity(*path) : std::nullopt;
}

/// A link that root meets may be anybody's, and may lead anywhere.
bool isLinkThatRootMustNotFollow(const std::string& path) {
  return platform::current().usersAndFolders.userID() == 0 && TGFileManager::isSymbolicLinkAtPath(path);
}

/// Walks folders by their paths, links to folders included, into each folder once: however links lead around,
/// the walk ends.
template <typename Visit>
class FileWalk {
 public:
  explicit FileWalk(Visit visit) : visit_(visit) {}

  void walk(const Path& folder) {
    const auto identity = identityOf(folder);
    if (!identity || !entered_.insert(*identity).second) return;
    for (const std::string& entry : entriesOf(folder)) {
      if (!TGFileManager::isDirectoryAtPath(entry)) {
        visit_(entry);
      } else if (!isLinkThatRootMustNotFollow(entry)) {
        walk(entry);
      }
    }
  }

 private:
  Visit visit_;
  std::set<ItemIdentity> entered_;
};

template <typename Visit>
void forEachFileBelow(const Path& folder, Visit visit) {
  FileWalk<Visit>(visit).walk(folder);
}

template <typename IsMeant>
Paths trashFilesBelow(const Path& folder, IsMeant isMeant) {
  Paths trashed;
  forEachFileBelow(folder, [&](const std::string& path) {
    if (!isMeant(path)) return;
    TGFileManager::trashFile(path);
    trashed.push_back(path);
  });
  return trashed;
}

/// What the Finder leaves behind in a folder that somebody has looked at.
bool isOfTheFinder(const std::string& name) {
  return name == ".DS_Store" || name == "Icon\r";
}

class EmptinessTest {
 public:
  bool isEmpty(const Path& folder) {
    const auto identity = identityOf(folder);
    if (!identity) return true;
    // A folder that is met again while it is being looked at holds itself, so it is not empty; one that has
    // been looked at was found empty, or nothing would be looked at any more.
    const auto [known, isNew] = found_.try_emplace(*identity, false);
    if (!isNew) return known->second;
    for (const std::string& name : namesIn(folder)) {
      if (isOfTheFinder(name)) continue;
      const std::string entry = foundation::appendingPathComponent(*folder, name);
      if (!TGFileManager::isDirectoryAtPath(entry) || !isEmpty(entry)) return false;
    }
    known->second = true;
    return true;
  }

 private:
  std::map<ItemIdentity, bool> found_;
};

}  // namespace

bool TGFileManager::trashDirectoryContents(const Path& folder, ShouldAuth shouldAuth) {
  bool trashed = true;
  for (const std::string& entry : entriesOf(folder)) {
    if (!trashFile(entry, shouldAuth)) trashed = false;
  }
  return trashed;
}

bool TGFileManager::copyContentsOfDirectory(const Path& source, const Path& toPath,
                                            std::chrono::seconds timeout) {
  for (const std::string& name : namesIn(source)) {
    const Path destination = toPath ? Path(foundation::appendingPathComponent(*toPath, name)) : std::nullopt;
    if (!copyFile(foundation::appendingPathComponent(*source, name), destination, timeout)) return false;
  }
  return true;
}

bool TGFileManager::isFolderEmpty(const Path& folder) {
  return EmptinessTest().isEmpty(folder);
}

bool TGFileManager::removeFolderIfEmpty(const Path& folder) {
  return isFolderEmpty(folder) && removeFile(folder);
}

Paths TGFileManager::trashFilesNamed(const std::string& name, const Path& folder) {
  return trashFilesBelow(
      folder, [&](const std::string& path) { return foundation::lastPathComponent(path) == name; });
}

Paths TGFileManager::trashFilesOfType(const std::string& extension, const Path& folder) {
  const std::string wanted = foundation::lowercase(extension);
  return trashFilesBelow(folder, [&](const std::string& path) {
    return foundation::lowercase(foundation::pathExtension(path)) == wanted;
  });
}

std::string TGFileManager::createDirectoryStructure(const Path& path, const Path& destination) {
  const std::string whole = path.value_or("");
  const bool isFolder = isDirectoryAtPath(path) && !isPackageAtPath(path);
  const std::string folder = isFolder ? whole : foundation::deletingLastPathComponent(whole);
  std::string mirror = foundation::appendingPathComponent(destination.value_or(""), folder);
  if (!fileExistsAtPath(mirror)) createDirectory(mirror);
  return mirror;
}

std::uint64_t TGFileManager::fileSize(const Path& path) {
  return isUsable(path) ? platform::current().folderQueries.totalSize(*path) : 0;
}

void TGFileManager::lockFolder(const Path& folder) {
  forEachFileBelow(folder, &TGFileManager::lockFile);
}

void TGFileManager::unlockFolder(const Path& folder) {
  forEachFileBelow(folder, &TGFileManager::unlockFile);
}
