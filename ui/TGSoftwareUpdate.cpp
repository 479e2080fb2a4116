#include "ui/TGSoftwareUpdate.h"

#include <mutex>
#include <optional>
#include <thread>

#include "diagnostics/GlobalPreferences.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"
#include "services/TGTask.h"

using foundation::appendingPathComponent;

namespace {

constexpr const char* kUpdater = "Vordenworks Software Update.app";

bool isEqualToNo(const foundation::PropertyList& value) {
  const bool isNumber = value.as<bool>() != nullptr || value.as<std::int64_t>() != nullptr ||
                        value.as<std::uint64_t>() != nullptr || value.as<double>() != nullptr;
  return isNumber && !value.boolValue();
}

bool isSwitchedOff() {
  const auto value = globalPreference("SUCheckAtStartup");
  return value && isEqualToNo(*value);
}

foundation::PropertyList informationOf(const std::string& bundle) {
  auto information = platform::readDictionary(appendingPathComponent(bundle, "Contents/Info.plist"));
  return information ? std::move(information).value() : foundation::PropertyList();
}

std::int64_t versionOf(const std::string& updater) {
  const foundation::PropertyList information = informationOf(updater);
  const foundation::PropertyList* const version = information.find("CFBundleVersion");
  return version == nullptr ? 0 : version->integerValue();
}

std::optional<std::string> installedUpdater() {
  const auto applications = TGLocalPaths::applicationDirectory(Domain::local);
  if (!applications) return std::nullopt;
  return appendingPathComponent(appendingPathComponent(*applications, "Vordenworks"), kUpdater);
}

std::string carriedUpdater() {
  return appendingPathComponent(platform::current().mainBundle.path() + "/Contents/Resources", kUpdater);
}

/// Nobody else has put a program there, nor can before it is run. Where nothing is, which an error of the
/// copying leaves, somebody may still come first.
bool isSafeToRun(const std::string& copy) {
  auto& files = platform::current().fileQueries;
  return files.isOutOfOthersReach(files.exists(copy) ? copy : foundation::deletingLastPathComponent(copy));
}

std::string makeWorkingCopy(const std::string& carried) {
  auto& changes = platform::current().fileChanges;
  std::string copy = appendingPathComponent(TGLocalPaths::tempDirectory(), kUpdater);
  // On purpose without a look at what becomes of either: an older copy of ours will do.
  static_cast<void>(changes.remove(copy));
  static_cast<void>(changes.copyForOwnUse(carried, copy));
  if (isSafeToRun(copy)) return copy;
  TGLog::appendLog("Software Update is not run from %@: other users could have put it there", copy);
  return {};
}

std::string newestUpdater() {
  const auto installed = installedUpdater();
  if (!installed) return {};
  const std::string carried = carriedUpdater();
  return versionOf(*installed) < versionOf(carried) ? makeWorkingCopy(carried) : *installed;
}

/// Held from the choice of an updater until it is started, so that neither check takes the working copy away
/// that the other is about to run.
std::mutex& choosing() {
  static auto& mutex = *new std::mutex;  // never freed: the check's thread may outlive the program's statics
  return mutex;
}

/// The program of a bundle; nullopt where there is none.
std::optional<std::string> executablePath(const std::string& bundle) {
  std::string name = informationOf(bundle).stringFor("CFBundleExecutable");
  const bool isFileName = !name.empty() && name.find('/') == std::string::npos;
  if (!isFileName) name = foundation::lastPathComponent(foundation::deletingPathExtension(bundle));
  std::string path = appendingPathComponent(bundle + "/Contents/MacOS", name);
  const bool isProgram = TGFileManager::fileExistsAtPath(path) && !TGFileManager::isDirectoryAtPath(path);
  return isProgram ? std::optional(path) : std::nullopt;
}

void runCheck(const std::string& updater, TGTaskSlot& task) {
  const auto executable = executablePath(updater);
  if (!executable) {
    TGLog::appendLog("Unable to launch Software Update - executable path doesn't exist");
  } else if (platform::current().usersAndFolders.userID() == 0) {
    TGLog::appendLog("Software Update is not run as root. Choose Check for Updates to run it as yourself");
  } else {
    TGTask::runTaskAndReturn(*executable, {{"-checkpath", platform::current().mainBundle.path()}}, &task);
  }
}

void startCheck(TGTaskSlot& task) {
  const std::scoped_lock lock(choosing());
  const std::string updater = newestUpdater();
  if (updater.empty()) {
    TGLog::appendLog("Unable to launch Software Update - path doesn't exist");
  } else if (TGFileManager::isDirectoryAtPath(updater)) {
    runCheck(updater, task);
  }
}

}  // namespace

void TGSoftwareUpdate::awakeFromNib() {
  startup();
}

void TGSoftwareUpdate::startup() {
  guarded("-[TGSoftwareUpdate startup]", [] {
    if (!isSwitchedOff()) std::thread([] { automaticallyCheckForUpdates(); }).detach();
  });
}

std::string TGSoftwareUpdate::updaterPath() {
  std::string path;
  guarded("+[TGSoftwareUpdate updaterPath]", [&] {
    const std::scoped_lock lock(choosing());
    path = newestUpdater();
  });
  return path;
}

void TGSoftwareUpdate::automaticallyCheckForUpdates() {
  guarded("+[TGSoftwareUpdate automaticallyCheckForUpdates]", [] {
    TGTaskSlot task;
    startCheck(task);
    if (const auto updater = task.load()) updater->waitUntilExit();
  });
}

void TGSoftwareUpdate::launchSoftwareUpdate() {
  guarded("+[TGSoftwareUpdate launchSoftwareUpdate]", [] {
    const std::scoped_lock lock(choosing());
    const std::string updater = newestUpdater();
    if (updater.empty()) {
      TGLog::appendLog("Unable to launch Software Update - path doesn't exist");
    } else {
      platform::current().workspace.openFile(updater);
    }
  });
}

void TGSoftwareUpdate::manualUpdateCheck(outlets::Sender*) {
  launchSoftwareUpdate();
}
