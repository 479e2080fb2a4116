#include "diagnostics/TGTroubleshootingUtils.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <set>

#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"

namespace {

using foundation::appendingPathComponent;
using foundation::stringWithFormat;
using platform::AtLink;
using Names = std::vector<std::string>;
using OptionalText = std::optional<std::string>;

void showAlert(GatherSilently silent, const char* title, const char* message) {
  if (silent == GatherSilently::no) platform::current().alerts.runPanel(title, message);
}

OptionalText vendorLogFolder(Domain domain) {
  const auto library = TGLocalPaths::libraryDirectory(domain);
  return library ? OptionalText(*library + "/Logs/Vordenworks") : std::nullopt;
}

OptionalText crashReportFolder(Domain domain) {
  const auto logs = TGLocalPaths::logDirectory(domain);
  return logs ? OptionalText(appendingPathComponent(*logs, "CrashReporter")) : std::nullopt;
}

void viewLog(const std::string& fileName, const char* missing) {
  const auto folder = vendorLogFolder(Domain::user);
  const OptionalText path = folder ? OptionalText(*folder + "/" + fileName) : std::nullopt;
  if (TGFileManager::fileExistsAtPath(path)) {
    platform::current().workspace.openFile(*path);
  } else {
    platform::current().alerts.runPanel("No log found", missing);
  }
}

bool isLogOf(const std::string& application, const std::string& fileName) {
  return fileName.starts_with(application) && fileName.ends_with(".log");
}

/// The ending is that of the reports which the applications' own reporter writes into this folder; those of
/// the system (".ips") lie elsewhere.
bool isCrashReportOf(const std::string& application, const std::string& fileName) {
  return fileName.starts_with(application + "_") && fileName.ends_with(".crash");
}

/// As an absolute path without steps upwards: a mirror stays below its root, whatever path it mirrors.
std::string withoutUpwardSteps(const std::string& path) {
  std::string result = "/";
  for (const std::string& component : foundation::pathComponents(path)) {
    if (component == "..") {
      result = foundation::deletingLastPathComponent(result);
    } else if (component != "." && component != "/") {
      result = appendingPathComponent(result, component);
    }
  }
  return result;
}

/// One gathering: the staging folder and what has been copied into it.
class Collection {
 public:
  /// Makes the staging folder afresh; what is wrong is printed: also that another gathering is using it.
  bool begin();

  /// Each answers false, having printed why, when a file cannot be copied.
  bool gatherDomain(Domain domain, const Names& names);
  bool gatherAdditionalFile(const std::string& path);

  [[nodiscard]] bool isEmpty() const { return gathered_.empty(); }
  [[nodiscard]] const std::string& staging() const { return staging_; }
  void removeStaging() const;

 private:
  using Matches = bool (*)(const std::string& application, const std::string& fileName);

  bool gatherMatching(const OptionalText& folder, const Names& names, Matches matches);
  bool gatherPreferences(const OptionalText& folder, const Names& names);
  bool gather(const std::string& folder, const std::string& fileName, AtLink atLink);
  bool add(const std::string& path, const std::string& copy, AtLink atLink, const char* failure);
  [[nodiscard]] OptionalText preferencesFileIn(const std::string& folder, const std::string& name) const;
  [[nodiscard]] std::string makeMirrorOf(const std::string& folder) const;

  const std::string staging_ = appendingPathComponent(TGLocalPaths::tempDirectory(), "TG_App_Logs");
  /// Who gets the archive; as root the user at the console.
  const platform::Reader reader_ = TGLocalPaths::username();
  std::unique_ptr<platform::FolderInUse> use_;
  std::set<std::string> gathered_;  ///< the copies, by their paths
};

bool Collection::begin() {
  platform::Platform& platform = platform::current();
  // Not looked for first: a link that leads nowhere has to go as well, and does not exist to any question.
  const auto left = platform.gathering.useLeftFolder(staging_);
  const auto removed = left ? platform.fileChanges.remove(staging_) : left.error();
  if (!removed && removed.error().code != ENOENT) {
    NSLog("Error removing existing folder: %@", removed.error().localizedDescription());
    return false;
  }
  auto created = platform.gathering.createPrivateFolder(staging_);
  if (!created) {
    NSLog("Error creating temp folder: %@", created.error().localizedDescription());
    return false;
  }
  use_ = std::move(created).value();
  return true;
}

void Collection::removeStaging() const {
  // What cannot be removed is in the way of the next gathering, which says so.
  static_cast<void>(platform::current().fileChanges.remove(staging_));
}

bool Collection::gatherDomain(Domain domain, const Names& names) {
  return gatherMatching(vendorLogFolder(domain), names, &isLogOf) &&
         gatherMatching(crashReportFolder(domain), names, &isCrashReportOf) &&
         gatherPreferences(TGLocalPaths::prefsDirectory(domain), names);
}

bool Collection::gatherMatching(const OptionalText& folder, const Names& names, Matches matches) {
  if (!folder) return true;
  const auto entries = platform::current().gathering.contentsOfDirectory(reader_, *folder);
  if (!entries) return true;
  return std::all_of(entries.value().begin(), entries.value().end(), [&](const std::string& entry) {
    const bool isMeant = std::any_of(names.begin(), names.end(),
                                     [&](const std::string& name) { return matches(name, entry); });
    return !isMeant || gather(*folder, entry, AtLink::copyDestination);
  });
}

OptionalText Collection::preferencesFileIn(const std::string& folder, const std::string& name) const {
  std::string plain = name;
  plain.erase(std::remove(plain.begin(), plain.end(), ' '), plain.end());
  for (const std::string& candidate : {plain, foundation::lowercase(plain)}) {
    std::string fileName = identifiers::kVendorPrefix + candidate + ".plist";
    if (platform::current().gathering.exists(reader_, appendingPathComponent(folder, fileName))) {
      return fileName;
    }
  }
  return std::nullopt;
}

bool Collection::gatherPreferences(const OptionalText& folder, const Names& names) {
  if (!folder) return true;
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    const OptionalText fileName = preferencesFileIn(*folder, name);
    return !fileName || gather(*folder, *fileName, AtLink::copyLink);
  });
}

/// Where it cannot be made the copy into it says so.
std::string Collection::makeMirrorOf(const std::string& folder) const {
  std::string mirror = appendingPathComponent(staging_, withoutUpwardSteps(folder));
  if (!TGFileManager::fileExistsAtPath(mirror)) TGFileManager::createDirectory(mirror);
  return mirror;
}

bool Collection::gather(const std::string& folder, const std::string& fileName, AtLink atLink) {
  const std::string copy = appendingPathComponent(makeMirrorOf(folder), fileName);
  if (gathered_.contains(copy)) return true;
  return add(appendingPathComponent(folder, fileName), copy, atLink, "Unable to copy log: %@");
}

bool Collection::gatherAdditionalFile(const std::string& path) {
  const std::string folder = makeMirrorOf(foundation::deletingLastPathComponent(path));
  const std::string copy = appendingPathComponent(folder, foundation::lastPathComponent(path));
  return add(path, copy, AtLink::copyLink, "Unable to copy file: %@");
}

bool Collection::add(const std::string& path, const std::string& copy, AtLink atLink, const char* failure) {
  const auto copied = platform::current().gathering.copy(reader_, path, copy, atLink);
  if (!copied) {
    NSLog(failure, copied.error().localizedDescription());
    return false;
  }
  gathered_.insert(copy);
  return true;
}

bool gatherAll(Collection& collection, const Names& names, const Names& additionalFiles) {
  return collection.gatherDomain(Domain::user, names) && collection.gatherDomain(Domain::local, names) &&
         std::all_of(additionalFiles.begin(), additionalFiles.end(),
                     [&](const std::string& path) { return collection.gatherAdditionalFile(path); });
}

OptionalText archivePath(const std::string& name) {
  const auto desktop = TGLocalPaths::desktopDirectory();
  if (!desktop) return std::nullopt;
  const std::string path = *desktop + stringWithFormat("/%@ Logs.zip", name);
  if (!TGFileManager::fileExistsAtPath(path)) return path;
  const auto now = platform::current().clock.now().formattedLocally("%Y%m%d%H%M%S");
  return foundation::deletingPathExtension(path) + stringWithFormat("_%@.zip", now);
}

/// The alert's words do for all that may be wrong; of a folder that is not there nobody would think.
void logUnusableFolder(const OptionalText& path) {
  if (!path) return;
  const std::string folder = foundation::deletingLastPathComponent(*path);
  if (!TGFileManager::fileExistsAtPath(folder)) {
    TGLog::appendLog("Unable to write the archive of the logs: the folder %@ is missing", folder);
  } else if (!TGFileManager::isDirectoryAtPath(folder)) {
    TGLog::appendLog("Unable to write the archive of the logs: %@ is no folder", folder);
  }
}

bool archive(const Collection& collection, const std::string& name, GatherSilently silent) {
  const OptionalText path = archivePath(name);
  const bool written = TGFileManager::compressFile(collection.staging(), path);
  collection.removeStaging();
  if (!written) logUnusableFolder(path);
  if (written) {
    showAlert(silent, "Logs gathered successfully", "The gathered logs were placed on your desktop.");
  } else {
    showAlert(silent, "Logs could not be gathered", "Please check your file permissions.");
  }
  return written;
}

bool gatherLogs(const Names& names, GatherSilently silent, const Names& additionalFiles) {
  if (names.empty()) return false;
  Collection collection;
  if (!collection.begin() || !gatherAll(collection, names, additionalFiles)) return false;
  if (collection.isEmpty()) {
    showAlert(silent, "No logs found", "There were no logs available to gather.");
    return false;
  }
  return archive(collection, names.front(), silent);
}

}  // namespace

void TGTroubleshootingUtils::viewLogForApp(const std::string& name) {
  viewLog(stringWithFormat("%@.1.log", name), "You must perform a task before viewing the log.");
}

void TGTroubleshootingUtils::viewTaskLogForApp(const std::string& name) {
  viewLog(stringWithFormat("%@.1.task.log", name),
          "You must run the application as a task (e.g. through Tickwarden) before viewing a log.");
}

bool TGTroubleshootingUtils::gatherLogsForAppWithName(const std::string& name) {
  return gatherLogsForAppsWithNames({name});
}

bool TGTroubleshootingUtils::gatherLogsForAppsWithNames(const Names& names) {
  return gatherLogsForAppsWithNames(names, GatherSilently::no);
}

bool TGTroubleshootingUtils::gatherLogsForAppsWithNames(const Names& names, GatherSilently silent) {
  return gatherLogsForAppsWithNames(names, silent, {});
}

bool TGTroubleshootingUtils::gatherLogsForAppsWithNames(const Names& names, GatherSilently silent,
                                                        const Names& additionalFiles) {
  bool gathered = false;
  const bool finished =
      guarded("+[TGTroubleshootingUtils gatherLogsForAppsWithNames:silent:additionalFiles:]",
              [&] { gathered = gatherLogs(names, silent, additionalFiles); });
  return finished && gathered;
}
