#include "platform/linux/ShellAssignments.h"

#include <algorithm>

#include "platform/foundation/Text.h"

namespace platform {
namespace {

std::string unquoted(std::string_view text) {
  std::string value;
  char quote = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char letter = text[at];
    if (quote == 0 && (letter == '"' || letter == '\'')) {
      quote = letter;
    } else if (quote != 0 && letter == quote) {
      quote = 0;
    } else if (letter == '\\' && quote != '\'' && at + 1 < text.size()) {
      value += text[++at];
    } else {
      value += letter;
    }
  }
  return value;
}

}  // namespace

std::optional<std::string> shellAssignment(std::string_view file, std::string_view name) {
  std::optional<std::string> value;
  while (!file.empty()) {
    const std::size_t end = std::min(file.find('\n'), file.size());
    const std::string line = foundation::trimmed(file.substr(0, end));
    file.remove_prefix(std::min(end + 1, file.size()));
    if (line.starts_with(name) && line.substr(name.size(), 1) == "=") {
      value = unquoted(std::string_view(line).substr(name.size() + 1));
    }
  }
  return value;
}

}  // namespace platform
