#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/TGAppController.h"
#include "ui/InterfaceOwner.h"

/// The owner of the main window: makes the controller once the window is loaded, connects its outlets, keeps
/// the check boxes in the preferences, and hands the actions on. What an action throws is logged under its
/// selector.
///
/// The window's frame is kept in the preferences too, as "NSWindow Frame windowMain".
class MainInterface : public outlets::InterfaceOwner {
 public:
  MainInterface() = default;
  /// Stamps the clean exit, when there is a controller. REQUIRES that no repair is under way.
  ~MainInterface() override = default;
  MainInterface(const MainInterface&) = delete;
  MainInterface& operator=(const MainInterface&) = delete;

  void interfaceDidLoad(const outlets::Connections& connections) override;
  bool respondsToAction(const std::string& action) override;
  void performAction(const std::string& action, outlets::Sender* sender) override;
  void openAddress(const std::string& address) override;
  bool isRepairing() override;
  void endRepairAndTerminate() override;
  bool shouldTerminateAfterLastWindowClosed() override;
  void applicationWillTerminate() override;
  std::string windowFrame() override;
  void setWindowFrame(const std::string& frame) override;
  std::string version() override;

 private:
  void readOptions();
  void storeOptions();

  std::unique_ptr<TGAppController> controller_;
};

/// Runs the desktop application with these arguments of the program and answers its exit status. A request to
/// end the process (platform::Interruption) ends the application first and the process then.
int runDesktopApplication(const std::vector<std::string>& arguments);
