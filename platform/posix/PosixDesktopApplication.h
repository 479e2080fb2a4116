#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "platform/DesktopApplication.h"
#include "platform/WindowModule.h"
#include "platform/posix/PosixAlerts.h"
#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixInterruption.h"
#include "platform/posix/PosixMainThread.h"

namespace platform {

/// The desktop application in a module of its own, so that a run without a window never loads a toolkit: a
/// library in the bundle's Contents/Frameworks, loaded by dlopen(3) and never unloaded (WindowModule.h).
///
/// Without a display, without the module, or without the function in it, one line that begins with
/// "Quillmend: " goes to standard error and the status is 1. From then on SIGTERM, SIGINT and SIGHUP are
/// requests to end the application.
///
/// A toolkit whose display is gone calls exit(3), and exit(3) during run() is taken for that. Waits on the
/// main thread are by poll(2) again then, and the process ends with status 1 or by the signal that it has
/// got.
class PosixDesktopApplication : public DesktopApplication, private WindowHost {
 public:
  /// All outlive this object.
  PosixDesktopApplication(PosixClock& clock, PosixMainThread& mainThread, PosixAlerts& alerts,
                          PosixInterruption& interruption)
      : clock_(clock), mainThread_(mainThread), alerts_(alerts), interruption_(interruption) {}

  int run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
          const std::function<void()>& displayWasLost) override;
  void terminate() override;

 protected:
  /// The module's file in Contents/Frameworks.
  [[nodiscard]] virtual std::string moduleName() = 0;

  /// Why there is no display to open a window on; nullopt where there is one.
  [[nodiscard]] virtual std::optional<std::string> whyNoDisplay() = 0;

  /// Why the module is not to be loaded, where the system can tell beforehand.
  [[nodiscard]] virtual std::optional<std::string> whyNotLoaded(const std::string& /*module*/) {
    return std::nullopt;
  }

 private:
  [[noreturn]] void exitWithoutDisplay(const std::function<void()>& displayWasLost);
  int workDescriptor() override;
  void serveQueued() override;
  int endRequestDescriptor() override;
  void applicationDidStart(WindowApplication& application) override;
  void applicationDidEnd() override;

  PosixClock& clock_;
  PosixMainThread& mainThread_;
  PosixAlerts& alerts_;
  PosixInterruption& interruption_;
  std::atomic<WindowApplication*> application_ = nullptr;
};

}  // namespace platform
