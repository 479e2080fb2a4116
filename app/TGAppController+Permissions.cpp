#include "app/RepairRun.h"
#include "diagnostics/TGException.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"

using foundation::appendingPathComponent;
using foundation::stringWithFormat;
using platform::Access;
using namespace std::chrono_literals;

namespace {

/// Runs a helper of the bundle with administrator rights and gives it a second; its outcome is not examined.
void runTool(const std::string& bundle, const std::string& name, const std::vector<std::string>& arguments) {
  TGAuthorization::sharedController()->authExecTask(
      appendingPathComponent(bundle, "Contents/Helpers/" + name), arguments);
  platform::current().clock.sleep(1s);
}

bool isAccessible(const std::string& path, Access access) {
  return platform::current().fileQueries.isAccessible(path, access);
}

}  // namespace

void TGAppController::chown(const std::string& path, const std::string& owner) {
  guarded("-[TGAppController chown:mode:]", [&] {
    runTool(currentBundlePath(), "chowntool", {"-R", owner, path});
  });
}

void TGAppController::chmod(const std::string& path, const std::string& mode) {
  guarded("-[TGAppController chmod:mode:]", [&] {
    runTool(currentBundlePath(), "chmodtool", {"-R", mode, path});
  });
}

void TGAppController::chmodNoRecursive(const std::string& path, const std::string& mode) {
  guarded("-[TGAppController chmodNoRecursive:mode:]", [&] {
    runTool(currentBundlePath(), "chmodtool", {mode, path});
  });
}

/// What Compressor 3.0.x and 3.5.x need of the system, in the order of the check.
std::vector<RepairRun::Component> RepairRun::components() const {
  const auto& [adminApps, userAppSupport, appSupport, library, systemLibrary] = folders_;
  if (versionCode_ == VersionCode::compressor30) {
    return {{adminApps, "Batch Monitor.app"},
            {appSupport, "Apple Qmaster"},
            {appSupport, "Apple Qmaster/qmasterservices.plist"},
            {appSupport, "Apple Qmaster/qmasterconfig"},
            {library, "PreferencePanes/Apple Qmaster.prefPane"},
            {library, "Frameworks/AECore.framework"},
            {library, "Frameworks/Compressor.framework"},
            {library, "Frameworks/MediaServerAPI.framework"},
            {library, "Frameworks/Qmaster.framework"},
            {library, "StartupItems/Qmaster"},
            {systemLibrary, "PrivateFrameworks/BrowserKit.framework"},
            {systemLibrary, "PrivateFrameworks/Helium.framework"},
            {systemLibrary, "PrivateFrameworks/ProKit.framework"},
            {"/", "usr/local/lib/libhelium_mac.a"},
            {"/", "usr/sbin/qmasterca"},
            {"/", "usr/sbin/qmasterd"},
            {"/", "usr/sbin/qmasterprefs"},
            {"/", "usr/sbin/qmasterqd"}};
  }
  return {{adminApps, "Batch Monitor.app"},
          {appSupport, "Apple Qmaster"},
          {appSupport, "Apple Qmaster/qmasterservices.plist"},
          {appSupport, "Apple Qmaster/qmasterconfig"},
          {appSupport, "ProMediaIO"},
          {library, "PreferencePanes/Apple Qmaster.prefPane"},
          {library, "Frameworks/AECore.framework"},
          {library, "Frameworks/Compressor.framework"},
          {library, "Frameworks/MediaServerAPI.framework"},
          {library, "Frameworks/Qmaster.framework"},
          {systemLibrary, "PrivateFrameworks/BrowserKit.framework"},
          {systemLibrary, "PrivateFrameworks/ProKit.framework"},
          {"/", "usr/sbin/qmasterca"},
          {"/", "usr/sbin/qmasterd"},
          {"/", "usr/sbin/qmasterprefs"},
          {"/", "usr/sbin/qmasterqd"}};
}

void RepairRun::checkPermissions() {
  if (versionCode_ != VersionCode::compressor30 && versionCode_ != VersionCode::compressor35) return;
  line("Checking file permissions...");
  for (const Component& component : components()) {
    if (!goesOn()) return;
    checkComponent(component);
  }
  if (!goesOn()) return;
  versionCode_ == VersionCode::compressor30 ? checkStartupItem() : checkLaunchDaemon();
}

void RepairRun::checkComponent(const Component& component) {
  const auto path = existingPath(component);
  if (!path) return;
  // Each on its own: one component can need all three mends.
  checkReadable(*path);
  checkWritable(*path);
  checkOpenable(*path);
}

std::optional<std::string> RepairRun::existingPath(const Component& component) {
  std::string path =
      component.base ? appendingPathComponent(*component.base, component.name) : component.name;
  if (component.base && TGFileManager::fileExistsAtPath(path)) return path;
  reportMissing(path);
  return std::nullopt;
}

// Which paths are left alone differs from check to check, on purpose: each mends only what is safe to change
// in that way. A mended problem still counts as an error found.

void RepairRun::checkReadable(const std::string& path) {
  if (isAccessible(path, Access::read)) return;
  errorsFound_ = true;
  if (path.ends_with(".framework") || path.starts_with("/usr") || path.starts_with("/Library/StartupItems")) {
    errorLine(stringWithFormat("%@ is not readable... unable to fix.", path));
    return;
  }
  errorLine(stringWithFormat("%@ is not readable... attempting fix.", path));
  controller_.chown(path, "root:wheel");
  controller_.chmod(path, "ugo+r");
}

void RepairRun::checkWritable(const std::string& path) {
  if (isAccessible(path, Access::write) || path.ends_with(".framework") || path.ends_with(".prefPane") ||
      path.starts_with("/usr") || isInLibrary(path, "StartupItems") || isInLibrary(path, "LaunchDaemons")) {
    return;
  }
  errorsFound_ = true;
  errorLine(stringWithFormat("%@ is not writable... attempting fix.", path));
  controller_.chmod(path, "ugo+w");
}

bool RepairRun::isInLibrary(const std::string& path, const std::string& folder) const {
  return folders_.localLibrary && path.starts_with(appendingPathComponent(*folders_.localLibrary, folder));
}

void RepairRun::checkOpenable(const std::string& path) {
  if (!TGFileManager::isDirectoryAtPath(path) || isAccessible(path, Access::execute) ||
      path.ends_with(".framework") || path.ends_with(".prefPane") || path.starts_with("/usr")) {
    return;
  }
  errorsFound_ = true;
  errorLine(stringWithFormat("%@ is not openable... attempting fix.", path));
  // The folder itself only: files in it must not become programs.
  controller_.chmodNoRecursive(path, "ugo+x");
}

void RepairRun::checkStartupItem() {
  repairStartupItemFile("StartupItems/Qmaster/Qmaster", "755");
  repairStartupItemFile("StartupItems/Qmaster/StartupParameters.plist", "644");
  // Relative on purpose, joined to no folder: whether the item is switched off is the owner's choice, and the
  // helper refuses a path like this one.
  controller_.authTrashFile("StartupItems/Qmaster/.disabled");
}

void RepairRun::repairStartupItemFile(const std::string& name, const std::string& mode) {
  const auto path = existingPath({folders_.localLibrary, name});
  if (!path) return;
  controller_.chown(*path, "root:wheel");
  controller_.chmod(*path, mode);
}

/// Only looked for: launchd refuses a job file whose owner or mode somebody has changed.
void RepairRun::checkLaunchDaemon() {
  existingPath({folders_.localLibrary, "LaunchDaemons/com.apple.qmaster.qmasterd.plist"});
}

void RepairRun::reportMissing(const std::string& path) {
  errorsFound_ = true;
  errorLine(
      stringWithFormat("'%@' does not exist. You are advised to reinstall Compressor / Qmaster.", path));
}
