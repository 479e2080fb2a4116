#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workstation/Snapshot.h"

namespace workstation {

/// Something that lies elsewhere now. What moved along inside of a folder is counted with the folder.
struct Move {
  std::string from;
  std::string to;
  std::size_t things = 1;  ///< the thing itself and all that is in it
  SnapshotEntry before = {};
  SnapshotEntry after = {};  ///< its owner and mode may have changed on the way
};

/// Something that is there or gone as a whole; what is inside is counted with it.
struct Presence {
  std::string path;
  std::size_t things = 1;
};

/// Something that stayed in its place and is not as it was.
struct Change {
  std::string path;
  SnapshotEntry before;
  SnapshotEntry after;
};

/// What became of a volume between two snapshots; each list in the order of its paths.
struct Difference {
  std::vector<Move> moved;
  std::vector<Presence> created;
  std::vector<Presence> removed;
  std::vector<Change> changed;  ///< of content, kind, owner or mode; a file that was written anew among them

  [[nodiscard]] bool empty() const {
    return moved.empty() && created.empty() && removed.empty() && changed.empty();
  }
};

/// Compares two snapshots of one volume. A thing that was renamed is known by its identity. A file that was
/// copied and removed is known by its name and content.
[[nodiscard]] Difference compare(const Snapshot& before, const Snapshot& after);

}  // namespace workstation
