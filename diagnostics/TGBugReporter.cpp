#include "diagnostics/TGBugReporter.h"

#include <algorithm>
#include <array>
#include <vector>

#include "diagnostics/GlobalPreferences.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"
#include "services/TGTask.h"

namespace {

using foundation::Date;
using foundation::PropertyList;
using OptionalText = std::optional<std::string>;

constexpr const char* kLaunch = "launch";
constexpr const char* kExit = "exit";

/// As root the file lies in a folder that its user controls: a link there could lead to a file that only root
/// may read, whose content would then be written into the user's own.
PropertyList readStore(const std::string& path) {
  platform::Platform& platform = platform::current();
  const bool isRoot = platform.usersAndFolders.userID() == 0;
  const auto bytes = isRoot ? platform.fileQueries.readFileItself(path, platform::kLargestPropertyList)
                            : platform.fileQueries.readFile(path, platform::kLargestPropertyList);
  if (!bytes) return {};
  auto value = platform.propertyLists.parse(bytes.value());
  const bool isDictionary = value && value.value().as<PropertyList::Dictionary>() != nullptr;
  return isDictionary ? std::move(value).value() : PropertyList();
}

/// A value that is no date counts as none.
std::optional<Date> dateIn(const PropertyList* value) {
  const Date* const date = value != nullptr ? value->as<Date>() : nullptr;
  return date != nullptr ? std::optional(*date) : std::nullopt;
}

struct Stamps {
  std::optional<Date> launch;
  std::optional<Date> exit;
};

Stamps readStamps(const OptionalText& plistPath) {
  if (plistPath) {
    const PropertyList store = readStore(*plistPath);
    return {dateIn(store.find(kLaunch)), dateIn(store.find(kExit))};
  }
  platform::Preferences& defaults = platform::current().preferences;
  const auto launch = defaults.value(kLaunch);
  const auto exit = defaults.value(kExit);
  return {dateIn(launch ? &*launch : nullptr), dateIn(exit ? &*exit : nullptr)};
}

/// Gives a file in somebody's home, written as root, back to the home's owner.
void giveToHomesOwner(const std::string& path) {
  const std::vector<std::string> components = foundation::pathComponents(path);
  const auto users = std::find(components.begin(), components.end(), "Users");
  if (users == components.end() || users + 1 == components.end()) return;
  TGTask::runTask("/usr/sbin/chown", std::vector<std::string>{*(users + 1), path});
}

void recordNow(const char* key, const OptionalText& plistPath) {
  const Date now = platform::current().clock.now();
  if (!plistPath) {
    platform::current().preferences.setValue(key, now);
    platform::current().preferences.synchronize();
    return;
  }
  PropertyList store = readStore(*plistPath);
  store.set(key, now);
  // A store that cannot be written costs the next start its check, nothing else: nobody is told.
  static_cast<void>(platform::writePropertyList(*plistPath, store, platform::PropertyListFormat::xml));
  giveToHomesOwner(*plistPath);
}

OptionalText bundleName() {
  const PropertyList information = platform::current().mainBundle.infoDictionary();
  const PropertyList* const name = information.find("CFBundleName");
  return name != nullptr ? OptionalText(name->description()) : std::nullopt;
}

/// The last file of the application's in a folder, by the folder's own order and not by date, on purpose.
OptionalText lastReportIn(const std::string& folder, const std::string& applicationName) {
  const auto names = platform::current().fileQueries.contentsOfDirectory(folder);
  if (!names) return std::nullopt;
  const std::string beginning = foundation::lowercase(applicationName + "_");
  const auto last = std::find_if(
      names.value().rbegin(), names.value().rend(),
      [&](const std::string& candidate) { return foundation::lowercase(candidate).starts_with(beginning); });
  if (last == names.value().rend()) return std::nullopt;
  return foundation::appendingPathComponent(folder, *last);
}

std::vector<std::string> reportFolders() {
  std::vector<std::string> folders;
  for (const Domain domain : {Domain::user, Domain::local}) {
    const OptionalText logs = TGLocalPaths::logDirectory(domain);
    if (!logs) continue;
    folders.push_back(foundation::appendingPathComponent(*logs, "CrashReporter"));
    folders.push_back(foundation::appendingPathComponent(*logs, "DiagnosticReports"));
  }
  return folders;
}

/// The first folder whose last report is newer than the launch decides; older reports there are not looked
/// at.
OptionalText reportNewerThan(Date launch, const std::string& applicationName) {
  for (const std::string& folder : reportFolders()) {
    OptionalText report = lastReportIn(folder, applicationName);
    if (!report) continue;
    const auto modified = platform::current().fileQueries.modificationDate(*report);
    if (modified && *modified > launch) return report;
  }
  return std::nullopt;
}

OptionalText reportOfLastLaunch(const OptionalText& name, const OptionalText& plistPath) {
  const Stamps stamps = readStamps(plistPath);
  if (!stamps.launch) return std::nullopt;                                 // the first run
  if (stamps.exit && *stamps.exit >= *stamps.launch) return std::nullopt;  // ended as it should
  const OptionalText applicationName = name ? name : bundleName();
  return reportNewerThan(*stamps.launch, applicationName.value_or("(null)"));
}

void openWithBugReporter(const std::string& report) {
  platform::Platform& platform = platform::current();
  OptionalText reporter = platform.mainBundle.pathForResource("Bug Reporter", "app");
  // The workspace opens by path: looking the identifier up first is the same, and tells where there is none.
  if (!reporter) reporter = platform.applications.pathForIdentifier(identifiers::kBugReporterApplication);
  if (reporter) platform.workspace.openFile(report, *reporter);
}

void announce(const std::string& report) {
  TGLog::appendLog("Application crashed on last launch");
  if (isSwitchedOnInGlobalPreferences("disable-crash-reporter")) {
    NSLog("Crash reporter disabled");
    TGLog::appendLog("Crash reporter disabled");
  } else {
    openWithBugReporter(report);
  }
}

}  // namespace

OptionalText TGBugReporter::checkForCrashes(const OptionalText& name, const OptionalText& plistPath) {
  OptionalText report;
  const bool finished = guarded("+[TGBugReporter checkForCrashes:plistPath:]", [&] {
    report = reportOfLastLaunch(name, plistPath);
    if (report) announce(*report);
  });
  return finished ? report : std::nullopt;
}

OptionalText TGBugReporter::checkForCrashes() {
  return checkForCrashes(std::nullopt, std::nullopt);
}

void TGBugReporter::startBugReporter(const OptionalText& name, const OptionalText& plistPath,
                                     TGBugReporterDelegate* delegate) {
  guarded("+[TGBugReporter startBugReporter:plistPath:delegate:]", [&] {
    const OptionalText report = checkForCrashes(name, plistPath);
    if (report && delegate != nullptr) {
      platform::current().mainThread.perform(
          [delegate, path = *report] { delegate->applicationDidCrashWithLog(path); }, platform::Wait::no);
    }
    recordNow(kLaunch, plistPath);
  });
}

void TGBugReporter::startBugReporter() {
  startBugReporter(std::nullopt, std::nullopt);
}

void TGBugReporter::startBugReporterWithDelegate(TGBugReporterDelegate* delegate) {
  startBugReporter(std::nullopt, std::nullopt, delegate);
}

void TGBugReporter::stopBugReporter(const OptionalText& plistPath) {
  guarded("+[TGBugReporter stopBugReporter:]", [&] { recordNow(kExit, plistPath); });
}

void TGBugReporter::stopBugReporter() {
  stopBugReporter(std::nullopt);
}

void TGBugReporter::chownPlist(const std::string& path) {
  guarded("+[TGBugReporter chownPlist:]", [&] { giveToHomesOwner(path); });
}
