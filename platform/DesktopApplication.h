#pragma once

#include <functional>
#include <string>
#include <vector>

namespace outlets {
class InterfaceOwner;
}

namespace platform {

/// Starts the program as a desktop application with its window.
class DesktopApplication {
 public:
  virtual ~DesktopApplication() = default;

  /// Loads the window module of the bundle and runs the application until it ends; the arguments are the
  /// program's, unchanged, and the owner (ui/InterfaceOwner.h) is handed to the module unseen. Answers the
  /// exit status. Without a display, or without the module, it says so in one line on standard error and
  /// answers 1.
  ///
  /// Where the display is lost meanwhile, there is no coming back from here: `displayWasLost` is called on
  /// the main thread and may wait there, no part of the window exists for it any more, and the process ends
  /// with a failure when it returns.
  virtual int run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
                  const std::function<void()>& displayWasLost) = 0;

  /// Asks the running application to end, as its Quit command does when nothing is under way; may return
  /// before it has.
  virtual void terminate() = 0;
};

}  // namespace platform
