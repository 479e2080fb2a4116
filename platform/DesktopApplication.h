#pragma once

#include <string>
#include <vector>

namespace platform {

/// Starts the program as a desktop application with its window.
class DesktopApplication {
 public:
  virtual ~DesktopApplication() = default;

  /// Loads the window module of the bundle and runs the application until it ends; the arguments are the
  /// program's, unchanged. Answers the exit status. Without a display, or without the module, it says so in
  /// one line on standard error and answers 1.
  virtual int run(const std::vector<std::string>& arguments) = 0;

  /// Asks the running application to end, as its Quit command does; may return before it has.
  virtual void terminate() = 0;
};

}  // namespace platform
