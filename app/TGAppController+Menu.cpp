#include "app/TGAppController.h"

#include <cerrno>

#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "diagnostics/TGTroubleshootingUtils.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGAuthorization.h"
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

/// Where it is stored: everybody's preferences on this computer.
std::string requirementFile() {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::local);
  return foundation::appendingPathComponent(folder.value_or("/Library/Preferences"),
                                            std::string(identifiers::kApplication) + ".plist");
}

/// What a person can do about it, where that is known.
std::string causeOf(const foundation::Error& error) {
  switch (error.code) {
    case EACCES:
    case EPERM:
      return "Your account may not write there. Have an administrator start Quillmend as root to change it.";
    case EROFS:
      return "Its volume is read-only.";
    case ENOSPC:
    case EDQUOT:
      return "The disk is full.";
    case EISDIR:
      return "There is a folder in the place of the file. Move it away.";
    case ENOTDIR:
    case EEXIST:
      return "There is something else in the place of the file's folder. Move it away.";
    default:
      return error.localizedDescription();
  }
}

void tellNotStored(const foundation::Error& error) {
  const std::string file = requirementFile();
  const std::string cause = causeOf(error);
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
  // At once: an end that nobody planned must not lift the requirement.
  const auto stored =
      platform::current().preferences.storeForAnyUserOnCurrentHost(kRequirement, static_cast<int>(state));
  if (stored) return;
  // What holds may have been changed by others since the switch last showed it.
  const auto holds = TGAppController::requiresAdminPassword() ? outlets::State::on : outlets::State::off;
  if (holds != state) sender.setState(holds);
  tellNotStored(stored.error());
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
  TGTroubleshootingUtils::gatherLogsForAppWithName("Quillmend");
}
