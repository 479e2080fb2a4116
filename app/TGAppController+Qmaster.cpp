#include "app/TGAppController.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"
#include "services/TGTask.h"

using foundation::appendingPathComponent;
using namespace std::chrono_literals;

namespace {

constexpr const char* kPreferencesTool = "/usr/sbin/qmasterprefs";
constexpr const char* kPreferencesTool4 = "Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs";
constexpr const char* kStartupItem = "/Library/StartupItems/Qmaster/Qmaster";
constexpr const char* kDaemonControlTool = "/bin/launchctl";
constexpr const char* kDaemonLabel = "com.apple.qmaster.qmasterd";
constexpr const char* kStatusMenu =
    "PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app";
constexpr const char* kStatusMenuExecutable =
    "/Library/PreferencePanes/Apple Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app/"
    "Contents/MacOS/QmasterStatusMenu";

using Arguments = std::vector<std::string>;

void pause(std::chrono::nanoseconds duration) {
  platform::current().clock.sleep(duration);
}

std::int32_t runPrivileged(const std::string& path, const Arguments& arguments) {
  return TGAuthorization::sharedController()->authExecTask(path, arguments);
}

/// With rights where they can be had, else without, and then waited for.
void runPrivilegedIfPossible(const std::string& path, const Arguments& arguments) {
  if (TGAuthorization::sharedController()->canAuthorize()) {
    runPrivileged(path, arguments);
  } else {
    TGTask::runTask(path, arguments);
  }
}

/// A path in the machine-wide Library folder.
std::string inLibrary(const std::string& component) {
  return appendingPathComponent(TGLocalPaths::libraryDirectory(Domain::local).value_or("/Library"),
                                component);
}

std::string daemonJobFile() {
  return inLibrary("LaunchDaemons/com.apple.qmaster.qmasterd.plist");
}

/// The tool inside Compressor 4; nullopt when it is not there, with a word in the log when Compressor 4 is.
std::optional<std::string> preferencesTool4() {
  const auto application = platform::current().applications.pathForIdentifier("com.apple.Compressor");
  if (!application) return std::nullopt;
  std::string tool = appendingPathComponent(*application, kPreferencesTool4);
  if (TGFileManager::fileExistsAtPath(tool)) return tool;
  TGLog::appendLog("Unable to locate qmasterprefs application at %@", tool);
  return std::nullopt;
}

void runPreferencesTool4(const Arguments& arguments, std::chrono::nanoseconds pauseAfter) {
  const auto tool = preferencesTool4();
  if (!tool) return;
  runPrivilegedIfPossible(*tool, arguments);
  pause(pauseAfter);
}

/// Starts a helper of the bundle and logs, with the message, that it could not be started. What the helper
/// does is never seen here.
void runHelper(const std::string& bundle, const std::string& name, const Arguments& arguments,
               const char* failureMessage) {
  const std::string path = appendingPathComponent(bundle, "Contents/Helpers/" + name);
  const std::int32_t status = runPrivileged(path, arguments);
  if (status != 0) TGLog::appendLog(failureMessage, status);
}

/// The spool folder that a services file below an Application Support folder names.
std::optional<std::string> configuredSpoolPath(const std::optional<std::string>& appSupport) {
  if (!appSupport) return std::nullopt;
  const auto services =
      platform::readDictionary(appendingPathComponent(*appSupport, "Apple Qmaster/qmasterservices.plist"));
  if (!services) return std::nullopt;
  const foundation::PropertyList* value = &services.value();
  for (const char* key : {"jobcontroller:com.apple.qmaster.cluster.admin", "UserPrefs", "Storage"}) {
    value = value->find(key);
    if (value == nullptr) return std::nullopt;
  }
  const auto* path = value->as<std::string>();
  return path == nullptr ? std::nullopt : std::optional(*path);
}

}  // namespace

// The operations of Compressor 3 that cancel, reset and restart always ask for rights; those of Compressor 4,
// and sharing, run without rights where none can be had. The pauses differ as the tools need them. Nothing of
// this is an oversight.

void TGAppController::qmasterCancelJobs() {
  guarded("-[TGAppController qmasterCancelJobs]", [] {
    if (!TGFileManager::fileExistsAtPath(kPreferencesTool)) return;
    runPrivileged(kPreferencesTool, {"-resetCluster", "cancelJobs"});
    pause(600us);
  });
}

void TGAppController::qmaster4CancelJobs() {
  runPreferencesTool4({"-resetCluster", "cancelJobs"}, 600us);
}

void TGAppController::qmasterReset() {
  guarded("-[TGAppController qmasterReset]", [] {
    if (!TGFileManager::fileExistsAtPath(kPreferencesTool)) return;
    runPrivileged(kPreferencesTool, {"-reset"});
    pause(2s);
  });
}

void TGAppController::qmaster4Reset() {
  runPreferencesTool4({"-reset"}, 600us);
}

void TGAppController::qmasterStartSharing() {
  runPrivilegedIfPossible(kPreferencesTool, {"-startSharing"});
  pause(600us);
}

void TGAppController::qmaster4StartSharing() {
  runPreferencesTool4({"-startSharing"}, 600us);
}

void TGAppController::qmasterStopSharing() {
  runPrivilegedIfPossible(kPreferencesTool, {"-stopSharing"});
  pause(1s);
}

void TGAppController::qmaster4StopSharing() {
  runPreferencesTool4({"-stopSharing"}, 1s);
}

void TGAppController::qmasterRestart() {
  guarded("-[TGAppController qmasterRestart]", [] {
    if (TGFileManager::fileExistsAtPath(kPreferencesTool)) runPrivileged(kPreferencesTool, {"-restart"});
  });
}

void TGAppController::qmaster4Restart() {
  runPreferencesTool4({"-restart"}, 1s);
}

void TGAppController::qmasterStart() {
  guarded("-[TGAppController qmasterStart]", [] {
    const std::string item = inLibrary("StartupItems/Qmaster/Qmaster");
    // "restart", while qmasterdStart says "start".
    if (TGFileManager::fileExistsAtPath(item)) runPrivileged(item, {"restart"});
  });
}

void TGAppController::qmasterdStart(Silent silent) {
  guarded("-[TGAppController qmasterdStart:]", [&] {
    if (TGFileManager::fileExistsAtPath(kStartupItem)) {
      runPrivileged(kStartupItem, {"start"});
    } else if (silent == Silent::no) {
      const auto report = [this] {
        insertBoldErrorText(
            "Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be found. Please reinstall "
            "Qmaster.");
      };
      platform::current().mainThread.perform(report, platform::Wait::yes);
    }
  });
}

void TGAppController::unloadQmasterDaemon() {
  runPrivileged(kDaemonControlTool, {"unload", daemonJobFile()});
  pause(1s);
  runPrivileged(kDaemonControlTool, {"remove", kDaemonLabel});
}

void TGAppController::loadQmasterDaemon() {
  runPrivileged(kDaemonControlTool, {"load", daemonJobFile()});
  pause(1s);
}

void TGAppController::qmasterMenuLaunch() {
  guarded("-[TGAppController qmasterMenuLaunch]", [] {
    if (!TGFileManager::fileExistsAtPath(inLibrary(kStatusMenu))) return;
    // It outlives this program, so it gets none of its streams: whoever reads them would wait for its end.
    const auto opener =
        platform::current().subprocesses.create({.launchPath = "/usr/bin/open",
                                                 .arguments = {"-a", kStatusMenuExecutable},
                                                 .standardInput = platform::Stream::nullDevice,
                                                 .standardOutput = platform::Stream::nullDevice,
                                                 .standardError = platform::Stream::nullDevice});
    opener->launch();
  });
}

void TGAppController::stopAll() {
  guarded("-[TGAppController stopAll]", [this] {
    TGLog::appendLog("Stopping apps...");
    runHelper(currentBundlePath(), "killtool", {}, "Error stopping Qmaster: %i");
    pause(1500us);
  });
}

void TGAppController::authTrashSpoolFolder(const std::string& path) {
  guarded("-[TGAppController authTrashSpoolFolder:]", [&] {
    TGLog::appendLog("Trashing contents of spool folder %@...", path);
    runHelper(currentBundlePath(), "trashtool", {"-spooldir", path},
              "Error trashing contents of spool folder: %i");
  });
}

void TGAppController::authTrashFolderContents(const std::string& path) {
  guarded("-[TGAppController authTrashFolderContents:]", [&] {
    TGLog::appendLog("Trashing contents of folder %@...", path);
    runHelper(currentBundlePath(), "trashtool", {"-dircontents", path},
              "Error trashing contents of folder: %i");
  });
}

void TGAppController::authTrashFile(const std::string& path) {
  guarded("-[TGAppController authTrashFile:]", [&] {
    TGLog::appendLog("Trashing file %@...", path);
    runHelper(currentBundlePath(), "trashtool", {path}, "Error trashing file: %i");
  });
}

std::optional<std::string> TGAppController::qmasterSpoolPath() {
  // As it stands: a tilde in the machine's file stands for nobody in particular.
  return configuredSpoolPath(TGLocalPaths::appSupportDirectory(Domain::local));
}

std::optional<std::string> TGAppController::qmaster4SpoolPath() {
  const auto path = configuredSpoolPath(TGLocalPaths::appSupportDirectory(Domain::user));
  if (!path) return std::nullopt;
  return platform::expandingTildeInPath(*path);
}
