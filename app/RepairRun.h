#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "app/TGAppController.h"

/// One repair: the procedure behind -[TGAppController startRepair:shouldResetLayout:isSilent:] and what it
/// knows while it runs. Made for one call of perform().
class RepairRun {
 public:
  RepairRun(TGAppController& controller, ShouldTrash shouldTrash, ShouldResetLayout shouldResetLayout,
            Silent isSilent);

  /// Repairs, from the request for rights to the reopening of Compressor. Throws what its operations throw.
  void perform();

 private:
  /// How a version of Compressor is treated.
  enum class VersionCode { unsupported = 0, compressor30 = 1, compressor35 = 2, compressor4 = 3 };

  /// Fetched once for each version. nullopt where the system has no such folder: what must be in it is
  /// missing then, and there is nothing of it to clean.
  struct BaseFolders {
    std::optional<std::string> adminApps;
    std::optional<std::string> userAppSupport;
    std::optional<std::string> localAppSupport;
    std::optional<std::string> localLibrary;
    std::optional<std::string> systemLibrary;
  };

  /// A component that must be there: a base folder (nullopt: the system has none) and the path in it.
  struct Component {
    std::optional<std::string> base;
    std::string name;
  };

  /// A stage of one version; a request to end is heeded behind it.
  struct Stage {
    const char* title;  ///< for the progress indicator
    void (RepairRun::*work)();
  };
  static const std::array<Stage, 8> kVersionStages;
  static constexpr std::size_t kClosingStages = 2;  ///< behind the last version: the name, the start

  bool authorize();
  void reportRefusal();
  void closeCompressors();
  bool closeCompressor(const std::vector<std::string>& launched, const std::string& identifier,
                       const std::string& message);
  void repairVersions();
  void repairVersion(const std::string& version);
  void classify(const std::string& version);
  void checkComputerName();
  void restartQmaster();
  void startQmaster(const std::vector<std::string>& versions);
  void report();
  void reportInterruption();
  void postFinished();
  void reopenCompressors();

  // The stages of one version.
  void stopQmaster();
  void fetchBaseFolders();
  void trashPreferences();
  void resetLayout();
  void checkPermissions();
  void removeCaches();
  void removeSpoolData();
  void clearHistory();

  void removeSpoolData3();
  void removeSpoolData4();
  void trashSpoolFolder(const std::optional<std::string>& base, const std::string& name);
  void trashFolderContents(const std::optional<std::string>& base, const std::string& name);

  // The check of the components, in TGAppController+Permissions.cpp.
  [[nodiscard]] std::vector<Component> components() const;
  void checkComponent(const Component& component);
  /// The path of a component that is there; one that is not is reported, by its name alone where the system
  /// has not its base folder.
  std::optional<std::string> existingPath(const Component& component);
  void checkReadable(const std::string& path);
  void checkWritable(const std::string& path);
  [[nodiscard]] bool isInLibrary(const std::string& path, const std::string& folder) const;
  void checkOpenable(const std::string& path);
  void checkStartupItem();
  void checkLaunchDaemon();
  void repairStartupItemFile(const std::string& name, const std::string& mode);
  void reportMissing(const std::string& path);

  /// Tells the window's progress indicator.
  void enterStage(const char* title);

  /// False once it was asked to end.
  bool goesOn();

  void line(const std::string& text);
  void boldLine(const std::string& text);
  void errorLine(const std::string& text);
  void boldErrorLine(const std::string& text);
  void growl(const std::string& description);

  TGAppController& controller_;
  const bool shouldTrash_;
  const bool shouldResetLayout_;
  const bool isSilent_;

  bool errorsFound_ = false;
  bool closedOldCompressor_ = false;
  bool closedCompressor4_ = false;
  std::optional<std::string> ending_;  ///< why it ends before its end
  std::size_t stages_ = 0;             ///< 0 until the versions are known
  std::size_t stagesBegun_ = 0;
  std::vector<std::string> versions_;  ///< of Compressor, once for each copy
  bool stoppedQmaster_ = false;        ///< of all versions: killtool makes no difference

  VersionCode versionCode_ = VersionCode::unsupported;
  BaseFolders folders_;
};
