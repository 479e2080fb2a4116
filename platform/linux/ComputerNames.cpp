#include "platform/linux/ComputerNames.h"

#include <fstream>
#include <iterator>

#include "platform/foundation/Text.h"
#include "platform/linux/ShellAssignments.h"

namespace platform {
namespace {

/// A name that was given, or nothing.
std::optional<std::string> given(const std::string& name) {
  if (name.empty() || name == "localhost" || name == "(none)") return std::nullopt;
  return name;
}

}  // namespace

std::optional<std::string> ComputerNames::staticHostName() const {
  std::ifstream file(folder_ + "/hostname");
  for (std::string line; std::getline(file, line);) {
    std::string name = foundation::trimmed(line);
    if (!name.empty() && name.front() != '#') return given(name);
  }
  return std::nullopt;
}

std::optional<std::string> ComputerNames::computerName() const {
  std::ifstream file(folder_ + "/machine-info");
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::string pretty = foundation::trimmed(shellAssignment(text, "PRETTY_HOSTNAME").value_or(""));
  if (auto name = given(pretty)) return name;
  return staticHostName();
}

std::optional<std::string> ComputerNames::localHostName() const {
  const auto name = staticHostName();
  return name ? given(name->substr(0, name->find('.'))) : std::nullopt;
}

}  // namespace platform
