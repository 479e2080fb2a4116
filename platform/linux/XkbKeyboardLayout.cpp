#include "platform/linux/XkbKeyboardLayout.h"

namespace platform {

std::optional<KeyTranslation> XkbKeyboardLayout::translate(std::uint16_t, std::uint32_t) {
  return std::nullopt;
}

}  // namespace platform
