#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "workstation/Volume.h"

namespace workstation {

/// A file, folder, link or other thing on a volume.
struct SnapshotEntry {
  char type = 'f';  ///< f file, d folder, l symbolic link, p FIFO, s socket, c and b devices
  mode_t mode = 0;  ///< the permission bits, with set-id and sticky bits
  uid_t user = 0;
  gid_t group = 0;
  std::uintmax_t size = 0;  ///< of a file
  std::string target = {};  ///< of a link
  std::uint64_t hash = 0;   ///< of a file's content
  /// Tells whether two entries are one and the same thing, under whatever names: device, inode and time of
  /// birth. A thing that is copied gets another.
  std::string identity = {};

  bool operator==(const SnapshotEntry&) const = default;
};

/// Everything on a volume at one moment, the workstation's own records left out.
struct Snapshot {
  std::map<std::string, SnapshotEntry> entries = {};  ///< by path inside, "/" itself included
  std::map<std::string, std::string> values = {};     ///< Records.h
  std::vector<std::string> residents = {};            ///< lines of processesFile
};

/// Takes one. Nothing is followed, opened for writing, or changed (times of access aside). Throws
/// std::filesystem::filesystem_error or std::system_error.
[[nodiscard]] Snapshot takeSnapshot(const Volume& volume);

/// As text, and back. Throws std::system_error when the file cannot be read or written, and
/// std::invalid_argument when it holds no snapshot.
void saveSnapshot(const Snapshot& snapshot, const std::filesystem::path& file);
[[nodiscard]] Snapshot loadSnapshot(const std::filesystem::path& file);

}  // namespace workstation
