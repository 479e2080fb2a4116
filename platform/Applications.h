#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/OSStatus.h"
#include "platform/foundation/PropertyList.h"

namespace platform {

/// Applications by their bundle identifiers.
class Applications {
 public:
  virtual ~Applications() = default;

  /// The path of the application with that identifier (the case of letters matters:
  /// "com.apple.compressor.Compressor" and "com.apple.Compressor" are two), or nullopt. Looked up afresh.
  [[nodiscard]] virtual std::optional<std::string> pathForIdentifier(const std::string& identifier) = 0;

  /// Makes the application at a path known, so that it is found by its identifier, also by the next processes
  /// of the user (of everybody, for root), and after a restart: LSRegisterURL. What is known already is
  /// success.
  virtual OSStatus registerApplication(const std::string& path) = 0;

  /// The identifiers of all running applications; an application is running while a process runs whose
  /// executable lies in its bundle.
  [[nodiscard]] virtual std::vector<std::string> launchedIdentifiers() = 0;

  /// Asks the running application of that name to quit, without waiting for its answer. On failure (no
  /// application of that name, no right to ask) the error dictionary that describes it.
  virtual std::optional<foundation::PropertyList> askToQuit(const std::string& applicationName) = 0;
};

}  // namespace platform
