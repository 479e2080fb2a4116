#include "app/TGAppController.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "diagnostics/TGTroubleshootingUtils.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGAuthorization.h"

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

/// Only an administrator may lift the requirement; anybody may make it.
bool mayStore(outlets::State state) {
  return state != outlets::State::off || TGAuthorization::sharedController()->authStart();
}

void toggleAdminPass(outlets::Switch& sender) {
  const outlets::State state = sender.state();
  if (!mayStore(state)) {
    sender.setState(outlets::State::on);
    return;
  }
  auto& preferences = platform::current().preferences;
  preferences.setValueForAnyUserOnCurrentHost("requireAdminPassword", static_cast<int>(state));
  // At once: an end that nobody planned must not lift the requirement.
  if (!preferences.synchronize()) TGLog::appendLog("Unable to store the preference requireAdminPassword");
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
  system.workspace.openFile(foundation::appendingPathComponent(
      system.mainBundle.path(), "Contents/Resources/Quillmend User Manual.pdf"));
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
  // Alerts have told the user how it ended.
  TGTroubleshootingUtils::gatherLogsForAppWithName("Quillmend");
}
