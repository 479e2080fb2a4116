#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "workstation/Volume.h"

namespace workstation {

/// Files and folders inside a volume that have to be there for something to be mounted on them. Those that
/// were missing are made, and taken away again at the end; nothing else is touched.
class MountPoints {
 public:
  explicit MountPoints(const Volume& volume) : volume_(volume) {}
  ~MountPoints();
  MountPoints(const MountPoints&) = delete;
  MountPoints& operator=(const MountPoints&) = delete;

  /// Throws std::filesystem::filesystem_error or std::system_error when one cannot be made.
  void needFolder(const std::string& inside);
  void needFile(const std::string& inside);

 private:
  Volume volume_;
  std::vector<std::filesystem::path> made_;
};

}  // namespace workstation
