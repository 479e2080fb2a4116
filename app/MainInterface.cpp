#include "app/MainInterface.h"

#include <array>
#include <functional>

#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "ui/TGShortcutKeyTableDelegate.h"

namespace {

using namespace std::chrono_literals;

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

/// Undoes the user's switching.
void putBack(outlets::Sender* sender) {
  auto* const stateful = dynamic_cast<outlets::Switch*>(sender);
  if (stateful != nullptr) stateful->setState(isOn(*stateful) ? outlets::State::off : outlets::State::on);
}

/// True for its life.
class Flag {
 public:
  explicit Flag(bool& flag) : flag_(flag) { flag_ = true; }
  ~Flag() { flag_ = false; }
  Flag(const Flag&) = delete;
  Flag& operator=(const Flag&) = delete;

 private:
  bool& flag_;
};

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

/// An action, and whether it may be performed beside others.
struct MainInterface::Command {
  enum class Beside { others, nothing };

  Action action;
  Beside beside = Beside::others;
};

/// By the names that the interface description has for them.
const std::map<std::string, MainInterface::Command>& MainInterface::commands() {
  constexpr auto kAlone = Command::Beside::nothing;
  static const std::map<std::string, Command> table = {
      {"repair", {plain(&TGAppController::repair), kAlone}},
      {"menuRestartQmaster", {plain(&TGAppController::menuRestartQmaster), kAlone}},
      {"menuStopQmaster", {plain(&TGAppController::menuStopQmaster), kAlone}},
      {"menuTrashCompressorPrefs", {plain(&TGAppController::menuTrashCompressorPrefs), kAlone}},
      {"menuTrashCompressor4Prefs", {plain(&TGAppController::menuTrashCompressor4Prefs), kAlone}},
      {"resetWindowLayout", {resetLayout(), kAlone}},
      {"prefsToggleAdminPass", {toggleAdminPass(), kAlone}},
      {"gatherLogs", {plain(&TGAppController::gatherLogs), kAlone}},
      {"viewLog", {plain(&TGAppController::viewLog)}},
      {"viewTaskLog", {plain(&TGAppController::viewTaskLog)}},
      {"helpManual", {plain(&TGAppController::helpManual)}},
      {"helpCareplex", {plain(&TGAppController::helpCareplex)}},
      {"helpHome", {plain(&TGAppController::helpHome)}},
      {"helpReportBug", {plain(&TGAppController::helpReportBug)}},
      {"helpSuggestFeature", {plain(&TGAppController::helpSuggestFeature)}},
      {"helpTGHome", {plain(&TGAppController::helpTGHome)}},
  };
  return table;
}

bool MainInterface::interfaceDidLoad(const outlets::Connections& connections) {
  bool goesOn = false;
  const bool isComplete = guarded("-[TGAppController awakeFromNib]", [&] {
    controller_ = TGAppController::init();
    connect(*controller_, connections);
    readOptions();
    goesOn = controller_->awakeFromNib();
  });
  // A window that cannot do what it shows, or that nobody has given the password for, is worse than none.
  if (!isComplete) {
    guarded("-[NSAlert runModal]", [] {
      platform::current().alerts.runPanel("Quillmend cannot be started",
                                          "Its start could not be completed, and it quits. Its log and the "
                                          "system log say why.");
    });
    return false;
  }
  if (goesOn) softwareUpdate_.awakeFromNib();
  return true;
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
  return action == "storeOptions" || action == "manualUpdateCheck" || commands().contains(action);
}

void MainInterface::performAction(const std::string& action, outlets::Sender* sender) {
  if (!controller_ || !respondsToAction(action)) return;
  if (action == "manualUpdateCheck") return softwareUpdate_.manualUpdateCheck(sender);
  guarded(("-[TGAppController " + action + ":]").c_str(),
          [&] { action == "storeOptions" ? storeOptions() : perform(commands().at(action), sender); });
}

void MainInterface::perform(const Command& command, outlets::Sender* sender) {
  if (command.beside == Command::Beside::others) return command.action(*controller_, sender);
  if (isActing_ || isRepairing()) return putBack(sender);
  const Flag acting(isActing_);
  command.action(*controller_, sender);
}

void MainInterface::openAddress(const std::string& address) {
  guarded("-[NSWorkspace openURL:]", [&] { platform::current().workspace.openURL(address); });
}

bool MainInterface::isRepairing() {
  return controller_ && controller_->isRepairing();
}

void MainInterface::endRepairAndTerminate() {
  // It may have ended while the user was asked.
  if (isRepairing()) return controller_->endRepairAndTerminate();
  platform::current().authorization.stopAsking();
  platform::current().desktopApplication.terminate();
}

void MainInterface::displayWasLost() {
  if (!controller_) return;
  connect(*controller_, {});
  if (isActing_) TGLog::appendLog("The display was lost during a command. Its last steps were not taken.");
  if (isRepairing()) {
    controller_->endRepair("Repair stopped: the display was lost.");
    waitForEndOfRepair();
  }
  applicationWillTerminate();
  TGLog::finishWriting();
}

/// Serving what it hands to the main thread. Not for ever: nobody could see any more that it does not end.
void MainInterface::waitForEndOfRepair() {
  constexpr auto kLongest = 5min;
  auto& system = platform::current();
  const auto start = system.clock.uptime();
  while (isRepairing() && system.clock.uptime() - start < kLongest) {
    system.mainThread.serveUntilReadable(-1, 50ms);
  }
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

outlets::ShortcutKeyOwner* MainInterface::shortcutKeys() {
  return TGShortcutKeyTableDelegate::sharedController();
}

std::optional<std::uint16_t> MainInterface::virtualKeyCode(std::uint32_t scanCode) {
  return platform::current().keyboardLayout.keyCodeForScanCode(scanCode);
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
    status = platform::current().desktopApplication.run(arguments, interface,
                                                        [&interface] { interface.displayWasLost(); });
    // However it came to its end: the repair's thread works on what goes now.
    if (interface.isRepairing()) interface.displayWasLost();
  }
  TGLog::finishWriting();
  platform::current().interruption.deliver();
  return status;
}
