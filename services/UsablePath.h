#pragma once

#include <optional>
#include <string>

/// The path can name an item: there is one, it is not empty, and no zero byte would cut it short in the
/// system's hands, so that another item would be meant.
[[nodiscard]] inline bool isUsable(const std::optional<std::string>& path) {
  return path && !path->empty() && path->find('\0') == std::string::npos;
}
