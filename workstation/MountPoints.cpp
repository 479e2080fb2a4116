#include "workstation/MountPoints.h"

#include "workstation/PropertyListFile.h"

namespace workstation {

namespace fs = std::filesystem;

MountPoints::~MountPoints() {
  // Innermost first. What is no longer empty is somebody's by now, and stays.
  for (auto place = made_.rbegin(); place != made_.rend(); ++place) {
    std::error_code error;
    if (fs::is_directory(fs::symlink_status(*place, error)) || fs::is_empty(*place, error)) {
      fs::remove(*place, error);
    }
  }
}

void MountPoints::needFolder(const std::string& inside) {
  const auto place = volume_.host(inside);
  if (fs::is_directory(place)) return;
  if (const auto parent = fs::path(inside).parent_path(); parent != "/") needFolder(parent.string());
  fs::create_directory(place);
  made_.push_back(place);
}

void MountPoints::needFile(const std::string& inside) {
  const auto place = volume_.host(inside);
  if (fs::exists(fs::symlink_status(place))) return;
  needFolder(fs::path(inside).parent_path().string());
  writeFile(place, "");
  made_.push_back(place);
}

}  // namespace workstation
