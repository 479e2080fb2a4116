#include "app/MainInterface.h"

#include <array>
#include <functional>
#include <map>

#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"

namespace {

constexpr const char* kFrame = "NSWindow Frame windowMain";

using Action = std::function<void(TGAppController&, outlets::Sender*)>;

template <typename Operation>
Action plain(Operation operation) {
  return [operation](TGAppController& controller, outlets::Sender*) { std::invoke(operation, controller); };
}

Action resetLayout() {
  return [](TGAppController& controller, outlets::Sender*) { controller.resetWindowLayout(ShowAlert::yes); };
}

Action toggleAdminPass() {
  return
      [](TGAppController& controller, outlets::Sender* sender) { controller.prefsToggleAdminPass(sender); };
}

/// By the names that the interface description has for them.
const std::map<std::string, Action>& actions() {
  static const std::map<std::string, Action> table = {
      {"repair", plain(&TGAppController::repair)},
      {"menuRestartQmaster", plain(&TGAppController::menuRestartQmaster)},
      {"menuStopQmaster", plain(&TGAppController::menuStopQmaster)},
      {"menuTrashCompressorPrefs", plain(&TGAppController::menuTrashCompressorPrefs)},
      {"menuTrashCompressor4Prefs", plain(&TGAppController::menuTrashCompressor4Prefs)},
      {"resetWindowLayout", resetLayout()},
      {"prefsToggleAdminPass", toggleAdminPass()},
      {"viewLog", plain(&TGAppController::viewLog)},
      {"viewTaskLog", plain(&TGAppController::viewTaskLog)},
      {"gatherLogs", plain(&TGAppController::gatherLogs)},
      {"helpManual", plain(&TGAppController::helpManual)},
      {"helpCareplex", plain(&TGAppController::helpCareplex)},
      {"helpHome", plain(&TGAppController::helpHome)},
      {"helpReportBug", plain(&TGAppController::helpReportBug)},
      {"helpSuggestFeature", plain(&TGAppController::helpSuggestFeature)},
      {"helpTGHome", plain(&TGAppController::helpTGHome)},
  };
  return table;
}

/// A check box and the preference that keeps its state.
struct Option {
  outlets::CheckBox* TGAppController::*box;
  const char* key;
};

constexpr std::array<Option, 3> kOptions = {{
    {&TGAppController::trashPrefs, "shouldTrash"},
    {&TGAppController::resetQmasterCheck, "shouldResetQmaster"},
    {&TGAppController::resetLayoutCheck, "shouldResetLayout"},
}};

bool isOn(const outlets::Switch& box) {
  return box.state() == outlets::State::on;
}

void connect(TGAppController& controller, const outlets::Connections& connections) {
  controller.windowMain = connections.windowMain;
  controller.errorText = connections.errorText;
  controller.repairButton = connections.repairButton;
  controller.trashPrefs = connections.trashPrefs;
  controller.resetQmasterCheck = connections.resetQmasterCheck;
  controller.resetLayoutCheck = connections.resetLayoutCheck;
  controller.logoImageView = connections.logoImageView;
  controller.menuItemResetOldQmasterConfig = connections.menuItemResetOldQmasterConfig;
  controller.prefsAdminPass = connections.prefsAdminPass;
  controller.repairProgress = connections.repairProgress;
}

}  // namespace

void MainInterface::interfaceDidLoad(const outlets::Connections& connections) {
  guarded("-[TGAppController awakeFromNib]", [&] {
    controller_ = TGAppController::init();
    connect(*controller_, connections);
    readOptions();
    controller_->awakeFromNib();
  });
}

/// A preference of a kind that is neither on nor off is off, as a repair that takes more away than was asked
/// for is worse than one that takes less.
void MainInterface::readOptions() {
  for (const auto& [box, key] : kOptions) {
    const auto value = platform::current().preferences.value(key);
    const bool wanted = value && value->boolValue();
    (controller_.get()->*box)->setState(wanted ? outlets::State::on : outlets::State::off);
  }
}

void MainInterface::storeOptions() {
  auto& preferences = platform::current().preferences;
  for (const auto& [box, key] : kOptions) {
    const bool wanted = isOn(*(controller_.get()->*box));
    const auto value = preferences.value(key);
    if (!value || value->boolValue() != wanted) preferences.setValue(key, wanted ? 1 : 0);
  }
  preferences.synchronize();
}

bool MainInterface::respondsToAction(const std::string& action) {
  return action == "storeOptions" || actions().contains(action);
}

void MainInterface::performAction(const std::string& action, outlets::Sender* sender) {
  if (!controller_ || !respondsToAction(action)) return;
  guarded(("-[TGAppController " + action + ":]").c_str(),
          [&] { action == "storeOptions" ? storeOptions() : actions().at(action)(*controller_, sender); });
}

void MainInterface::openAddress(const std::string& address) {
  guarded("-[NSWorkspace openURL:]", [&] { platform::current().workspace.openURL(address); });
}

bool MainInterface::isRepairing() {
  return controller_ && controller_->isRepairing();
}

void MainInterface::endRepairAndTerminate() {
  // It may have ended while the user was asked.
  isRepairing() ? controller_->endRepairAndTerminate() : platform::current().desktopApplication.terminate();
}

bool MainInterface::shouldTerminateAfterLastWindowClosed() {
  return TGAppController::applicationShouldTerminateAfterLastWindowClosed();
}

void MainInterface::applicationWillTerminate() {
  guarded("-[TGAppController applicationWillTerminate:]", [&] {
    if (controller_) TGAppController::applicationWillTerminate();
    platform::current().preferences.synchronize();
  });
}

std::string MainInterface::windowFrame() {
  std::string frame;
  guarded("-[NSWindow setFrameUsingName:]", [&] {
    const auto value = platform::current().preferences.value(kFrame);
    if (const auto* const text = value ? value->as<std::string>() : nullptr) frame = *text;
  });
  return frame;
}

void MainInterface::setWindowFrame(const std::string& frame) {
  guarded("-[NSWindow saveFrameUsingName:]",
          [&] { platform::current().preferences.setValue(kFrame, frame); });
}

std::string MainInterface::version() {
  std::string version;
  guarded("-[NSBundle infoDictionary]", [&] {
    const auto information = platform::current().mainBundle.infoDictionary();
    if (const auto* const value = information.find("CFBundleShortVersionString")) {
      version = value->description();
    }
  });
  return version;
}

int runDesktopApplication(const std::vector<std::string>& arguments) {
  int status = 0;
  {
    MainInterface interface;
    status = platform::current().desktopApplication.run(arguments, interface);
  }
  TGLog::finishWriting();
  platform::current().interruption.deliver();
  return status;
}
