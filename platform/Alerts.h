#pragma once

#include <string>

namespace platform {

/// Modal panels with one default button.
class Alerts {
 public:
  virtual ~Alerts() = default;

  /// Shows a panel and returns when it is dismissed. REQUIRES the main thread. Without a desktop the two
  /// texts are written to the system console.
  virtual void runPanel(const std::string& title, const std::string& message) = 0;
};

}  // namespace platform
