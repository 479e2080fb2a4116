#pragma once

#include <functional>

namespace platform {

/// Hears of an entry: its name, and its kind as dirent(5) tells it (DT_DIR, …, DT_UNKNOWN).
using VisitEntry = std::function<void(const char* name, unsigned char type)>;

/// Reads an open folder from where it stands, "." and ".." left out. Answers 0 or an errno value.
using ReadFolder = int(int folder, const VisitEntry& visit);

/// By readdir(3), for any system.
[[nodiscard]] int readFolderByStream(int folder, const VisitEntry& visit);

/// By the quickest way of this system.
[[nodiscard]] int readFolder(int folder, const VisitEntry& visit);

}  // namespace platform
