#include "helpers/QmasterPrograms.h"

#include <algorithm>
#include <array>
#include <vector>

#include "platform/foundation/Paths.h"

namespace helpers {
namespace {

using Components = std::vector<std::string>;

constexpr std::array<std::string_view, 3> kDaemons = {"/usr/sbin/qmasterd", "/usr/sbin/qmasterqd",
                                                      "/usr/sbin/qmasterca"};
constexpr std::array<std::string_view, 4> kFolders = {
    "/Library/Application Support/Apple Qmaster/", "/Library/Frameworks/Compressor.framework/",
    "/Library/Frameworks/Qmaster.framework/", "/Library/Frameworks/MediaServerAPI.framework/"};
constexpr std::array<std::string_view, 4> kApplications = {"Compressor.app", "Batch Monitor.app",
                                                           "Apple Qmaster.app", "Apple Qadministrator.app"};
constexpr std::string_view kCompressorKit =
    "/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/";

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// Whether the component at that place is in a folder named Applications, or one level below one.
bool isInApplications(const Components& path, std::size_t place) {
  return path[place - 1] == "Applications" || (place >= 2 && path[place - 2] == "Applications");
}

bool isInClientBundle(const Components& path) {
  for (std::size_t place = 1; place + 1 < path.size(); ++place) {
    if (contains(kApplications, path[place]) && isInApplications(path, place)) return true;
    if (path[place] == "Apple Qmaster.prefPane" && path[place - 1] == "PreferencePanes" && place >= 2 &&
        path[place - 2] == "Library") {
      return true;
    }
  }
  return false;
}

QmasterRole roleOfDaemon(std::string_view name, QmasterRole otherwise) {
  if (name == "qmasterd") return QmasterRole::daemon;
  if (name == "qmasterqd") return QmasterRole::queue;
  return name == "qmasterca" ? QmasterRole::controller : otherwise;
}

bool isController(std::string_view executable) {
  return contains(kDaemons, executable) || executable.find(kCompressorKit) != std::string_view::npos ||
         std::any_of(kFolders.begin(), kFolders.end(),
                     [&](std::string_view folder) { return executable.starts_with(folder); });
}

}  // namespace

std::optional<QmasterRole> qmasterRole(std::string_view executable) {
  if (!executable.starts_with('/')) return std::nullopt;
  const std::string name = foundation::lastPathComponent(executable);
  if (name == "qmasterprefs") return std::nullopt;
  if (isController(executable)) return roleOfDaemon(name, QmasterRole::controller);
  if (isInClientBundle(foundation::pathComponents(executable)))
    return roleOfDaemon(name, QmasterRole::client);
  return std::nullopt;
}

}  // namespace helpers
