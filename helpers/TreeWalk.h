#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>

#include "helpers/Surroundings.h"
#include "helpers/Tool.h"

namespace helpers {

/// One entry of a tree while it is being visited. The references are good only during the visit.
struct TreeVisit {
  int descriptor = -1;  ///< holds the entry itself (HeldEntries.h), also where it is a symbolic link
  const FileStatus& status;
  const std::string& name;
  const FileStatus& folder;   ///< the folder that the entry was found in
  int folderDescriptor = -1;  ///< holds it
  const std::string& path;
};

/// Visits an entry and everything below it, a folder before what it holds; what is no folder only where the
/// selector answers yes to its status, so that nothing else is opened. Symbolic links are visited and never
/// followed; a folder that is exchanged for a link between being listed and being opened is met as that
/// link. What lies on another volume, or is mounted in the tree, is left out and reported. Entries that
/// vanish are passed over. An entry that cannot be opened or listed is reported and the walk goes on. Ends
/// early when a stop is requested. Any depth: a bounded number of folders is held open, and one that was
/// closed meanwhile is gone back to only if it is still the same. Memory is used for the names of a folder
/// and of those above it that are still to be visited.
class TreeWalk {
 public:
  using Selector = std::function<bool(const FileStatus&)>;
  using Visitor = std::function<void(const TreeVisit&)>;
  using Listed = std::function<void(const std::string& path)>;

  TreeWalk(Report& report, Selector selector, Visitor visitor);

  /// Called each time when a folder has been listed and none of its entries has been opened yet.
  void onListed(Listed listed) { listed_ = std::move(listed); }

  void walk(const PathEntry& top);

 private:
  struct Level {
    platform::UniqueDescriptor descriptor;
    FileStatus status;
    std::size_t pathLength = 0;  ///< of the folder above
    platform::NameList names = {};
  };

  void visitNextEntry();
  void open(const Level& level);
  void enter(const std::string& name, platform::UniqueDescriptor descriptor, const FileStatus& status);
  void leave();
  void nameEntry();

  Report& report_;
  Selector selector_;
  Visitor visitor_;
  Listed listed_;
  std::size_t mostOpenFolders_;
  std::string path_;       ///< of the folder in hand
  std::string name_;       ///< of the entry in hand
  std::string entryPath_;  ///< and its path, from nameEntry() on; both keep their room
  std::vector<Level> levels_;
};

/// Keeps files with several names (hard links) apart from the rest. A user may have given any file of the
/// volume a second name inside the tree, /etc/shadow for one; a tool of root's must not change such a file
/// because of that name. A file with several names is therefore changed only when all of its names have been
/// found in the tree, each in a folder that only root (or the user that this process acts as) can write, so
/// that nobody can have made one name look like two by renaming. All others are left as they are and
/// reported; so are those beyond the first 512 such files (fewer where a process may open few), and beyond
/// 50,000 names of them, so that somebody's many links do not use up memory and descriptors.
class LinkedFiles {
 public:
  using Change = std::function<void(int descriptor, const std::string& path)>;

  explicit LinkedFiles(Report& report);

  /// Whether an entry is one to be kept apart, of which it then takes note. Also kept, and reported at once,
  /// is a file that has lost the name it was found by: its other names are not known.
  [[nodiscard]] bool keeps(const TreeVisit& visit);

  /// At the end of the walk: changes those whose names are all known, reports the others.
  void finish(const Change& change);

 private:
  using FileKey = std::pair<std::uint64_t, std::uint64_t>;
  struct File {
    platform::UniqueDescriptor descriptor;
    std::string path;
    std::set<std::tuple<std::uint64_t, std::uint64_t, std::string>> names;
  };

  void add(const TreeVisit& visit);

  Report& report_;
  std::size_t mostFiles_;
  platform::KeptNames keptNames_;
  std::map<FileKey, File> files_;
  std::size_t nameCount_ = 0;
};

}  // namespace helpers
