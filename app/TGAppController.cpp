#include "app/TGAppController.h"

#include <algorithm>

#include "diagnostics/TGBugReporter.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "services/TGAuthorization.h"
#include "services/TGLocalPaths.h"
#include "ui/AttributedString.h"

namespace {

constexpr const char* kRequireAdminPassword = "requireAdminPassword";

std::optional<std::string> preferencesFile() {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  if (!folder) return std::nullopt;
  return foundation::appendingPathComponent(*folder, std::string(identifiers::kApplication) + ".plist");
}

bool isHotKeyRun() {
  const auto arguments = platform::current().processInformation.arguments();
  return std::find(arguments.begin(), arguments.end(), "-hotkey") != arguments.end();
}

void registerDefaults() {
  platform::current().preferences.registerDefaults(foundation::PropertyList::Dictionary{
      {"SUCheckAtStartup", true}, {"shouldTrash", 1}, {"shouldResetQmaster", 1}, {"shouldResetLayout", 1}});
}

}  // namespace

std::unique_ptr<TGAppController> TGAppController::init() {
  std::unique_ptr<TGAppController> controller(new TGAppController);
  TGBugReporter::startBugReporter();
  TGLog::createNewLog("Quillmend");
  controller->hasGUI_ = true;
  registerDefaults();
  return controller;
}

std::unique_ptr<TGAppController> TGAppController::initWithoutGUI() {
  std::unique_ptr<TGAppController> controller(new TGAppController);
  TGBugReporter::startBugReporter("Quillmend", preferencesFile());
  TGLog::createNewLog("Quillmend.task");
  controller->hasGUI_ = false;
  // The key helper of the desktop is another process of this program and never needs rights.
  if (!isHotKeyRun()) TGAuthorization::sharedController(WithGUI::no);
  return controller;
}

TGAppController::~TGAppController() {
  // Without a path on purpose: the exit of every run is kept in the user defaults.
  TGBugReporter::stopBugReporter();
}

void TGAppController::setHasGUI(bool hasGUI) {
  hasGUI_ = hasGUI;
  // On purpose without the dialog: what is made here first only ever uses rights that it was started with.
  if (hasGUI) TGAuthorization::sharedController(WithGUI::no);
}

bool TGAppController::requiresAdminPassword() {
  const auto value = platform::current().preferences.value(kRequireAdminPassword);
  return value && value->as<std::string>() == nullptr && value->isSwitchedOn();
}

bool TGAppController::awakeFromNib() {
  if (requiresAdminPassword()) {
    if (prefsAdminPass != nullptr) prefsAdminPass->setState(outlets::State::on);
    if (!TGAuthorization::sharedController()->authStart()) {
      platform::current().desktopApplication.terminate();
      return false;
    }
  }
  if (!platform::current().applications.pathForIdentifier(identifiers::kCrashAnalysisApplication)) {
    offerCrashAnalysis();
  }
  return true;
}

void TGAppController::offerCrashAnalysis() {
  if (errorText == nullptr) return;
  errorText->setEditable(true);
  errorText->setSelectedRange({errorText->length(), 0});
  errorText->insertText("\n\n", {});
  errorText->insertAttributedText(
      AttributedString::hyperlinkFromString("Get Stellate Toolbox for even more features",
                                            std::string(identifiers::kWebSite) + "/stellatetoolbox"));
  errorText->setEditable(false);
}

void TGAppController::applicationWillTerminate() {
  TGBugReporter::stopBugReporter();
}
