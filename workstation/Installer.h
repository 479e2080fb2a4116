#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/foundation/PropertyList.h"
#include "workstation/PropertyListFile.h"
#include "workstation/Volume.h"

namespace workstation {

/// Who owns a file, and its mode.
struct Ownership {
  uid_t user = 0;
  gid_t group = 0;
  mode_t mode = 0755;
};

inline constexpr uid_t aliceID = 501;
inline constexpr uid_t bobID = 502;
inline constexpr gid_t staffID = 20;
inline constexpr gid_t adminID = 80;

/// Puts files and folders into a volume, with the owners and modes that a Mac's installers give them. Missing
/// folders on the way become root's, mode 755. Errors as in Volume.h.
class Installer {
 public:
  explicit Installer(const Volume& volume) : volume_(volume) {}

  void folder(const std::string& path, Ownership ownership = {}) const;
  void file(const std::string& path, std::string_view bytes, Ownership ownership = {0, 0, 0644}) const;
  void propertyList(const std::string& path, const foundation::PropertyList& value, Encoding encoding,
                    Ownership ownership = {0, 0, 0644}) const;
  void link(const std::string& path, const std::string& target) const;

  /// A copy of the stand-in, which acts by the place that it is at.
  void standIn(const std::string& path, Ownership ownership = {}) const;

  /// Many files "prefix000000.suffix" in one folder that is there. Made relative to the folder, since there
  /// may be a hundred thousand.
  void manyFiles(const std::string& path, std::string_view prefix, std::size_t count,
                 Ownership ownership) const;

  struct Bundle {
    std::string path;
    std::string identifier;
    std::string executable = {};  ///< its name; empty for a bundle without one
    std::string type = "APPL";
    std::string version;
    Encoding infoEncoding = Encoding::xml;
    Encoding versionEncoding = Encoding::xml;
    Ownership ownership = {};
  };

  /// Contents with Info.plist, version.plist, PkgInfo, MacOS (a stand-in) and Resources.
  void bundle(const Bundle& bundle) const;

  /// Versions/A with its Info.plist, a binary and Resources, and the links that lead there.
  void framework(const std::string& path) const;

 private:
  void own(const std::string& path, Ownership ownership) const;

  const Volume& volume_;
};

}  // namespace workstation
