#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "workstation/Damage.h"

/// A sample workstation: a Mac's startup volume in a folder.
///
/// Everything here throws std::system_error or std::filesystem::filesystem_error when the disk refuses, and
/// std::invalid_argument for a plan that contradicts itself. Owners are those of a Mac, so it takes root.
namespace workstation {

/// A copy of Compressor.
struct CompressorCopy {
  std::string version;    ///< in full, for example "3.5.3"; any from "4" on is of the Compressor 4 family
  std::string path = {};  ///< where its bundle lies; empty: the usual place of its family (usualPath)
  bool running = false;   ///< alice has it open when a visit begins

  [[nodiscard]] std::string majorMinor() const;
  [[nodiscard]] bool isFour() const;

  /// "com.apple.compressor.Compressor" up to 3, "com.apple.Compressor" from 4 on.
  [[nodiscard]] std::string bundleIdentifier() const;

  /// The path, or "/Applications/Final Cut Studio/Compressor.app" (3) or "/Applications/Compressor.app" (4).
  [[nodiscard]] std::string usualPath() const;
};

/// What a workstation is to be like. The default is one in good order with nothing of Compressor's on it.
struct Plan {
  std::vector<CompressorCopy> compressors = {};

  bool qmasterRunning = true;        ///< the daemons of every Qmaster on it run, and sharing is on
  bool batchMonitorRunning = false;  ///< alice has Batch Monitor open (Compressor 3 brings it)
  bool statusMenuRunning = false;    ///< the menu-bar item runs (as above)

  /// Who sits at the console: a user's name ("alice", "bob", "root"), "greeter" while the login window shows,
  /// or empty for nobody.
  std::string consoleUser = "alice";
  std::optional<std::string> computerName = "Edit Suite 4";
  std::optional<std::string> localHostName = "edit-suite-4";
  bool wheelGroup = true;   ///< group 0 is called wheel; else root, as on Linux
  bool logFolder = false;   ///< /Library/Logs/Vordenworks is there
  bool trashFolder = true;  ///< the users have a .Trash (a new account has none until its first use)

  bool preferences = true;  ///< of Compressor, in both users' homes
  bool layout = true;
  bool caches = true;
  bool history = true;

  /// Files of spool data in all, dealt out evenly to the spool folders of the versions on it.
  std::size_t spoolFiles = 12;

  /// The spool folder that the services file names. Absent: the family's own. Empty: the file has no such
  /// setting. A leading "~" is written as it stands, and is alice's home when the folder is made.
  std::optional<std::string> configuredSpool = {};      ///< of Compressor 3, in the computer's services file
  std::optional<std::string> configuredFourSpool = {};  ///< of Compressor 4, in alice's

  bool shortcutKeyManager = false;  ///< the maker's program for keyboard shortcuts is installed
  std::string softwareUpdate = {};  ///< the version of the maker's updater; empty: it is not installed

  std::vector<Damage> damage = {};  ///< done last, in order
};

/// Makes the volume in a folder, which must be missing or empty. Two users: alice (501, an administrator) and
/// bob (502), group staff (20). As on a Mac /etc, /var and /tmp are links into /private, root's home is
/// /var/root, and groups are wheel (0), staff (20) and admin (80).
void makeVolume(const std::filesystem::path& folder, const Plan& plan);

/// A volume, once made. Paths are those inside, beginning with a slash.
class Volume {
 public:
  explicit Volume(std::filesystem::path folder) : folder_(std::move(folder)) {}

  [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }

  /// Where a path inside lies in the caller's file system; links on the way (/etc, /var, /tmp) are not
  /// followed into the caller's own.
  [[nodiscard]] std::filesystem::path host(std::string_view inside) const;

  /// Whether the folder looks like a Mac's startup volume: it has a Library, a System or a Users folder.
  [[nodiscard]] bool looksLikeMac() const;

 private:
  std::filesystem::path folder_;
};

/// The folder that holds this project's stand-in and the programs that run inside: what the environment's
/// WORKSTATION_PROGRAMS says, else where they were built.
[[nodiscard]] std::filesystem::path programsFolder();

}  // namespace workstation
