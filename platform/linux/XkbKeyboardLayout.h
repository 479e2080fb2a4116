#pragma once

#include "platform/KeyboardLayout.h"

namespace platform {

class XkbKeyboardLayout : public KeyboardLayout {
 public:
  std::optional<KeyTranslation> translate(std::uint16_t keyCode, std::uint32_t modifierState) override;
};

}  // namespace platform
