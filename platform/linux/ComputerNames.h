#pragma once

#include <optional>
#include <string>

namespace platform {

/// The computer's names as the files of a folder ("/etc") set them. The names that a system has when nobody
/// has given it one ("localhost", "(none)") are none.
class ComputerNames {
 public:
  explicit ComputerNames(std::string folder) : folder_(std::move(folder)) {}

  /// The name for people: PRETTY_HOSTNAME of machine-info(5), else the name in hostname(5).
  [[nodiscard]] std::optional<std::string> computerName() const;

  /// The name on the local network: the first label of the name in hostname(5).
  [[nodiscard]] std::optional<std::string> localHostName() const;

 private:
  [[nodiscard]] std::optional<std::string> staticHostName() const;

  std::string folder_;
};

}  // namespace platform
