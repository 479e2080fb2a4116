#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/TGAppController.h"
#include "ui/InterfaceOwner.h"
#include "ui/TGSoftwareUpdate.h"

/// The owner of the main window: makes the controller once the window is loaded, connects its outlets, keeps
/// the check boxes in the preferences, and hands the actions on. What an action throws is logged under its
/// selector. The look for updates begins when all that is done.
///
/// The start fails closed: whatever is thrown while the controller is made and while the administrator
/// password is asked for ends it with an alert, and interfaceDidLoad() answers false.
///
/// An action that uses administrator rights or what a repair works on is performed alone: not beside a
/// repair, whose rights it would use or take, and not while another such action still waits, for a password
/// for example. The window keeps keys and clicks back meanwhile, but assistive programs press buttons past
/// it. A switch that cannot be heeded goes back.
///
/// The window's frame is kept in the preferences too, as "NSWindow Frame windowMain".
class MainInterface : public outlets::InterfaceOwner {
 public:
  MainInterface() = default;
  /// Stamps the clean exit, when there is a controller. REQUIRES that no repair is under way.
  ~MainInterface() override = default;
  MainInterface(const MainInterface&) = delete;
  MainInterface& operator=(const MainInterface&) = delete;

  [[nodiscard]] bool interfaceDidLoad(const outlets::Connections& connections) override;
  bool respondsToAction(const std::string& action) override;
  void performAction(const std::string& action, outlets::Sender* sender) override;
  void openAddress(const std::string& address) override;
  bool isRepairing() override;
  void endRepairAndTerminate() override;
  bool shouldTerminateAfterLastWindowClosed() override;
  void applicationWillTerminate() override;
  std::string windowFrame() override;
  void setWindowFrame(const std::string& frame) override;
  outlets::ShortcutKeyOwner* shortcutKeys() override;
  std::optional<std::uint16_t> virtualKeyCode(std::uint32_t scanCode) override;
  std::string version() override;

  /// The display is gone: touches no part of the window any more, lets a repair under way end at its next
  /// step, and stamps the end. Comes back when all of that is done. An action that is performed meanwhile on
  /// the main thread is cut where it waits, as the log says then.
  void displayWasLost();

 private:
  struct Command;

  static const std::map<std::string, Command>& commands();
  void perform(const Command& command, outlets::Sender* sender);
  void waitForEndOfRepair();
  void readOptions();
  void storeOptions();

  std::unique_ptr<TGAppController> controller_;
  bool isActing_ = false;  ///< an action that is performed alone is under way
  TGSoftwareUpdate softwareUpdate_;
};

/// Runs the desktop application with these arguments of the program and answers its exit status. A request to
/// end the process (platform::Interruption) ends the application first and the process then.
int runDesktopApplication(const std::vector<std::string>& arguments);
