#include "platform/linux/busagent/Icon.h"

#include <png.h>

namespace busagent {

namespace {

constexpr png_uint_32 kLargestSide = 1024;

}  // namespace

std::optional<Icon> iconOf(const std::string& png) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_memory(&image, png.data(), png.size()) == 0) return std::nullopt;
  Icon icon;
  const bool isSmallEnough = image.width <= kLargestSide && image.height <= kLargestSide;
  image.format = PNG_FORMAT_RGBA;
  if (isSmallEnough) {
    icon.width = static_cast<std::int32_t>(image.width);
    icon.height = static_cast<std::int32_t>(image.height);
    icon.pixels.resize(PNG_IMAGE_SIZE(image));
  }
  const bool isRead =
      isSmallEnough && png_image_finish_read(&image, nullptr, icon.pixels.data(), 0, nullptr) != 0;
  png_image_free(&image);
  if (!isRead) return std::nullopt;
  return icon;
}

}  // namespace busagent
