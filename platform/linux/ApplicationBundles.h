#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/PropertyList.h"

/// Application bundles as they lie on the disk, after Apple's Bundle Programming Guide. They may belong to
/// users that a root process must not trust: files are read only when they are regular files of a bounded
/// size that no link stands for, and nothing blocks on a FIFO or touches a device.
namespace platform {

/// The largest Info.plist that is read.
inline constexpr std::uint64_t kLargestInfoPlist = 1ULL << 20;
/// Bundles beyond this number are not looked at, so that nobody's folder keeps a repair busy for hours.
inline constexpr std::size_t kMostBundles = 4096;

/// What a bundle says of itself.
struct ApplicationBundle {
  std::string path;                      ///< the bundle's folder, "/Applications/Compressor.app"
  foundation::PropertyList information;  ///< Contents/Info.plist; empty when there is none that can be read

  /// CFBundleIdentifier; "" when there is none.
  [[nodiscard]] std::string identifier() const;
  /// The name is the folder's without ".app", or CFBundleName.
  [[nodiscard]] bool isCalled(const std::string& name) const;
  /// CFBundlePackageType; "" when there is none.
  [[nodiscard]] std::string packageType() const;
  /// The path of the program in Contents/MacOS: CFBundleExecutable, else the folder's name without its
  /// extension. A CFBundleExecutable that is not a plain file name counts as none.
  [[nodiscard]] std::string executable() const;
};

/// Reads a bundle's Info.plist.
[[nodiscard]] ApplicationBundle readBundle(const std::string& path);

/// The name of a folder that the desktop shows as one file ("x.app", "x.prefPane", "x.rtfd"), whatever the
/// case of its extension.
[[nodiscard]] bool hasPackageExtension(const std::string& path);

/// The innermost application bundle in whose Contents/MacOS a program lies; nullopt outside a bundle.
[[nodiscard]] std::optional<std::string> bundleOfExecutable(const std::string& executable);

/// The paths of the application bundles in a folder and in the folders one level below it ("Final Cut
/// Studio/Compressor.app"): first those of the folder itself, then the others, each sorted by name. Other
/// bundles and hidden folders are not entered.
[[nodiscard]] std::vector<std::string> applicationsInFolder(const std::string& folder);

/// Where the applications of this computer are looked for, best first, the bundles' real paths below `root`:
/// the local Applications folder, its Utilities, the Applications folder of the user, and the registered
/// ones. Root looks into no user's folder: it runs tools that lie inside of applications.
///
/// Applications elsewhere are registered in "/Library/Preferences/com.vordenworks.applications.plist", a
/// dictionary whose key "Applications" holds an array of bundle paths; a process that is not root also reads
/// the file of that name in its user's Library/Preferences. Root takes the file only when it is root's own
/// and nobody else may write it.
[[nodiscard]] std::vector<std::string> applicationPaths(const std::string& root);

/// Whose registry is believed: anybody's, or only a file that is root's own and that nobody else may write.
enum class Trust { anybody, rootOnly };

/// The paths in a registry file, whether something is there or not; none from a file that is not believed.
[[nodiscard]] std::vector<std::string> registeredApplications(const std::string& file, Trust trust);

inline constexpr const char* kApplicationRegistry = "/Library/Preferences/com.vordenworks.applications.plist";

}  // namespace platform
