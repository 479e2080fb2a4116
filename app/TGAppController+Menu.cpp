#include "app/TGAppController.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "diagnostics/TGTroubleshootingUtils.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"

using foundation::stringWithFormat;

namespace {

/// Asks for rights where they are not held; a refusal is the user's own answer and needs no message.
bool obtainRights() {
  auto* const authorization = TGAuthorization::sharedController();
  if (authorization->isAuthorized()) return true;
  return authorization->authStart() && authorization->authRef() != nullptr;
}

void openPage(const std::string& pathAndQuery) {
  platform::current().workspace.openURL(identifiers::kWebSite + pathAndQuery);
}

constexpr const char* kRequirement = "requireAdminPassword";

/// Only an administrator may lift the requirement; anybody may make it.
bool mayStore(outlets::State state) {
  return state != outlets::State::off || TGAuthorization::sharedController()->authStart();
}

/// At once: an end that nobody planned must not lift the requirement.
bool store(outlets::State state) {
  auto& preferences = platform::current().preferences;
  preferences.setValueForAnyUserOnCurrentHost(kRequirement, static_cast<int>(state));
  return preferences.synchronize();
}

/// Where it is stored: everybody's preferences on this computer.
std::string requirementFile() {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::local);
  return foundation::appendingPathComponent(folder.value_or("/Library/Preferences"),
                                            std::string(identifiers::kApplication) + ".plist");
}

/// The folder is not there yet where nobody has ever stored anything; then the one that it would be made in
/// decides.
bool mayWriteIn(std::string folder) {
  auto& queries = platform::current().fileQueries;
  while (folder.size() > 1 && !queries.exists(folder)) folder = foundation::deletingLastPathComponent(folder);
  return queries.isAccessible(folder, platform::Access::write);
}

void tellNotStored() {
  const std::string file = requirementFile();
  const std::string cause = mayWriteIn(foundation::deletingLastPathComponent(file))
                                ? "It could not be written. The disk may be full."
                                : "Your account may not write there. An administrator can change it.";
  TGLog::appendLog("Unable to store the preference %@ in %@: %@", kRequirement, file, cause);
  platform::current().alerts.runPanel(
      "The password requirement was not changed",
      stringWithFormat("It is kept for everybody on this computer in this file:\n%@\n\n%@", file, cause));
}

void toggleAdminPass(outlets::Switch& sender) {
  const outlets::State state = sender.state();
  if (!mayStore(state)) {
    sender.setState(outlets::State::on);
    return;
  }
  if (store(state)) return;
  // What waits in memory goes back too, or a later chance to store would change the requirement unseen. It is
  // stored once more for the case that only other preferences could not be.
  const auto before = state == outlets::State::on ? outlets::State::off : outlets::State::on;
  static_cast<void>(store(before));
  sender.setState(before);
  tellNotStored();
}

/// The alerts of the gathering tell that there is no archive; this, that there is no place for one.
void tellMissingDesktop() {
  const auto desktop = TGLocalPaths::desktopDirectory();
  if (!desktop || TGFileManager::isDirectoryAtPath(desktop)) return;
  TGLog::appendLog("Unable to gather logs: there is no desktop folder %@", *desktop);
  platform::current().alerts.runPanel(
      "There is no desktop folder",
      stringWithFormat("The gathered logs are to be placed in this folder, which does not exist:\n%@\n\n"
                       "Make it, and gather the logs again. The logs themselves are as they were.",
                       *desktop));
}

}  // namespace

void TGAppController::menuRestartQmaster() {
  if (!obtainRights()) return;
  // The operations of Compressor 3 whatever is installed; they report nothing back, so the alert says in any
  // case that the steps were taken. Both on purpose.
  loadQmasterDaemon();
  qmasterdStart(Silent::yes);
  qmasterStart();
  qmasterRestart();
  qmasterStartSharing();
  qmasterMenuLaunch();
  platform::current().alerts.runPanel("Qmaster started", "Qmaster started successfully.");
}

void TGAppController::menuStopQmaster() {
  if (!obtainRights()) return;
  qmasterStopSharing();
  unloadQmasterDaemon();
  stopAll();
  platform::current().alerts.runPanel("Qmaster stopped", "Qmaster stopped successfully.");
}

void TGAppController::prefsToggleAdminPass(outlets::Sender* sender) {
  try {
    auto* const stateful = dynamic_cast<outlets::Switch*>(sender);
    if (stateful != nullptr) toggleAdminPass(*stateful);
  } catch (const foundation::Exception& exception) {
    // Only these; what else may be thrown is none of this action's and goes on to the caller.
    TGException::logException(exception, "-[TGAppController prefsToggleAdminPass:]");
  }
}

void TGAppController::helpManual() {
  auto& system = platform::current();
  const std::string manual = foundation::appendingPathComponent(
      system.mainBundle.path(), "Contents/Resources/Quillmend User Manual.pdf");
  // No alert, on purpose, as with the pages: help that does not come explains itself, and the log says where
  // it lies.
  if (!system.workspace.openFile(manual)) TGLog::appendLog("Unable to open %@", manual);
}

void TGAppController::helpCareplex() {
  openPage("/Careplex/");
}

void TGAppController::helpHome() {
  openPage("/quillmend.htm");
}

void TGAppController::helpReportBug() {
  const auto information = platform::current().mainBundle.infoDictionary();
  const auto* version = information.find("CFBundleShortVersionString");
  // As it stands, not escaped: the form reads it that way.
  openPage("/software_bugreport.htm?app=quillmend&version=" + (version ? version->description() : ""));
}

void TGAppController::helpSuggestFeature() {
  openPage("/software_featurerequest.htm?app=quillmend");
}

void TGAppController::helpTGHome() {
  openPage("");
}

void TGAppController::viewLog() {
  TGTroubleshootingUtils::viewLogForApp("Quillmend");
}

void TGAppController::viewTaskLog() {
  TGTroubleshootingUtils::viewTaskLogForApp("Quillmend");
}

void TGAppController::gatherLogs() {
  if (!TGTroubleshootingUtils::gatherLogsForAppWithName("Quillmend")) tellMissingDesktop();
}
