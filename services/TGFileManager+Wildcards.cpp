#include <string_view>
#include <utility>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"
#include "services/UsablePath.h"
#include "services/WildcardMatch.h"

namespace {

using platform::EntryKind;
using Path = TGFileManager::Path;

/// A path that may be matched further, with what the listing it was found in told of it.
struct Candidate {
  std::string path;
  EntryKind kind = EntryKind::unknown;
};
using Candidates = std::vector<Candidate>;

bool isWildcard(std::string_view text) {
  return text.find('*') != std::string_view::npos;
}

/// As appendingPathComponent for a plain name, without its care: it is called for every entry of every
/// folder.
std::string joined(const std::string& folder, std::string_view name) {
  std::string path;
  path.reserve(folder.size() + 1 + name.size());
  path = folder;
  if (!path.ends_with('/')) path += '/';
  path += name;
  return path;
}

/// What has just been listed is there; only a link may lead nowhere.
bool isThere(const Candidate& candidate) {
  const bool isListed = candidate.kind == EntryKind::folder || candidate.kind == EntryKind::other;
  return isListed || TGFileManager::fileExistsAtPath(candidate.path);
}

void appendMatches(const Candidate& folder, const std::string& component, Candidates& matches) {
  if (folder.kind == EntryKind::other || !isUsable(folder.path)) return;  // holds nothing
  const auto entries = platform::current().folderQueries.entries(folder.path);
  if (!entries) return;
  for (const platform::FolderEntry& entry : entries.value()) {
    if (!isLike(entry.name, component)) continue;
    Candidate match{joined(folder.path, entry.name), entry.kind};
    if (isThere(match)) matches.push_back(std::move(match));
  }
}

Candidates matching(const Candidates& candidates, const std::string& component) {
  Candidates matches;
  for (const Candidate& candidate : candidates) {
    if (isWildcard(component)) {
      appendMatches(candidate, component, matches);
    } else if (Candidate literal{joined(candidate.path, component)}; isThere(literal)) {
      matches.push_back(std::move(literal));
    }
  }
  return matches;
}

}  // namespace

TGFileManager::Paths TGFileManager::filesMatchingWildcardPath(const std::string& pattern,
                                                              const Path& fromBasePath) {
  if (!isWildcard(pattern)) {
    return {fromBasePath ? foundation::appendingPathComponent(*fromBasePath, pattern) : pattern};
  }
  // From the root folder, never from the current one.
  const Candidates start = {{fromBasePath.value_or("/")}};
  Candidates candidates = start;
  for (const std::string& component : foundation::pathComponents(pattern)) {
    candidates = component == "/" ? start : matching(candidates, component);
  }
  Paths paths;
  paths.reserve(candidates.size());
  for (Candidate& candidate : candidates) paths.push_back(std::move(candidate.path));
  return paths;
}

Path TGFileManager::decodeWildcardPath(const std::string& pattern, const Path& fromBasePath) {
  const Paths matches = filesMatchingWildcardPath(pattern, fromBasePath);
  if (!matches.empty()) return matches.front();
  if (!fromBasePath) return std::nullopt;
  return foundation::appendingPathComponent(*fromBasePath, pattern);
}
