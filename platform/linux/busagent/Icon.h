#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace busagent {

/// An image as notification servers take it: rows from the top, four bytes a pixel, red, green, blue, alpha.
struct Icon {
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::vector<std::uint8_t> pixels;
};

/// The image of a PNG file of up to 1024 x 1024 pixels; nullopt for anything else.
[[nodiscard]] std::optional<Icon> iconOf(const std::string& png);

}  // namespace busagent
