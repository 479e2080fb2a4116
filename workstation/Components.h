#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "workstation/Volume.h"

/// What the installers of Compressor and Qmaster put where.
namespace workstation {

/// One file or folder that an installer puts on the volume.
struct Component {
  enum class Kind { folder, file, propertyList, executable, framework, application, preferencePane };
  std::string path;
  Kind kind;
  bool adminWritable = false;  ///< group admin may write to it (the rest is root's alone)
};

/// Everything a Compressor 3 installer puts outside of Compressor.app itself, by "major.minor": what 3.0
/// brings (a startup item, the Helium parts), and what 3.5 brings (ProMediaIO, a launchd job). Any other
/// version brings none of these.
[[nodiscard]] std::vector<Component> systemComponents(std::string_view majorMinor);

/// The folder, by domain, that a family keeps its Qmaster files in: of the whole computer for Compressor 3,
/// of the user for Compressor 4.
inline constexpr std::string_view localSupport = "/Library/Application Support";
inline constexpr std::string_view userSupport = "/Users/alice/Library/Application Support";
inline constexpr std::string_view userPreferences = "/Users/alice/Library/Preferences";

/// The eight cache files, relative to an Application Support folder. The colons are part of the names.
[[nodiscard]] const std::vector<std::string>& cacheFiles();

/// The spool folders of a family that are always looked at, in order.
[[nodiscard]] std::vector<std::string> spoolFolders(bool compressorFour);

/// The history folders of a family.
[[nodiscard]] std::vector<std::string> historyFolders(bool compressorFour);

/// The preference files of a family, in the user's Preferences folder.
[[nodiscard]] std::vector<std::string> preferenceFiles(bool compressorFour);

inline constexpr std::string_view layoutFile = "Compressor/Layouts/Compressor.saved.moduleLayout";
inline constexpr std::string_view statusMenu =
    "/Library/PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app";
inline constexpr std::string_view batchMonitor = "/Applications/Utilities/Batch Monitor.app";
inline constexpr std::string_view launchdJob = "/Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist";
inline constexpr std::string_view launchdLabel = "com.apple.qmaster.qmasterd";
inline constexpr std::string_view startupItem = "/Library/StartupItems/Qmaster";

/// Where the maker's updater of its applications is installed. A stand-in, as any application: it records how
/// it was started, and runs until it is asked to quit.
inline constexpr std::string_view softwareUpdate =
    "/Applications/Vordenworks/Vordenworks Software Update.app";

/// Puts an updater of that version (a whole number) at a place: the one above, or an application's resources.
void putSoftwareUpdate(const Volume& volume, const std::string& path, const std::string& version);

/// The program that all the maker's applications have set their keyboard shortcuts up.
inline constexpr std::string_view shortcutKeyManager =
    "/Library/Application Support/Vordenworks/Shared Resources/TGShortcutKeyManager";

/// The folder inside a Compressor 4 bundle that holds its own qmasterprefs and daemons.
inline constexpr std::string_view kitFolder = "Contents/PlugIns/Compressor/CompressorKit.bundle";

/// Where on a volume, as far as there is something, the tools lie that there are stand-ins for, those inside
/// the Compressors of the Applications folder included.
[[nodiscard]] std::vector<std::string> standInPlaces(const Volume& volume);

}  // namespace workstation
