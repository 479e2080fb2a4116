#pragma once

#include <QPointer>
#include <QWidget>
#include <atomic>
#include <memory>

#include "platform/WindowModule.h"
#include "ui/InterfaceOwner.h"

namespace window {

/// The running application: the main thread's event loop while there is a window. REQUIRES that the toolkit's
/// application object exists. Its watching of the host begins and ends with it.
class Application : public platform::WindowApplication {
 public:
  explicit Application(platform::WindowHost& host);
  ~Application() override;
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// What the user does in the window meanwhile (keys, clicks) is kept until the wait is over, so that an
  /// action which waits is not begun a second time; panels that come up meanwhile work. Terminating ends it.
  bool runUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) override;
  /// Nothing is shown any more once the application is to end.
  void runPanel(const std::string& title, const std::string& message) override;
  void terminate() override;

  [[nodiscard]] bool isTerminating() const { return isTerminating_; }

  /// The window that panels stand over.
  void setPanelParent(QWidget* parent) { panelParent_ = parent; }

 private:
  struct Watches;

  platform::WindowHost& host_;
  std::unique_ptr<Watches> watches_;
  QPointer<QWidget> panelParent_;
  std::atomic<bool> isTerminating_ = false;
};

/// The whole life of the desktop application (platform::WindowModuleMain).
int runApplication(int argc, char** argv, platform::WindowHost& host, outlets::InterfaceOwner& owner);

}  // namespace window
