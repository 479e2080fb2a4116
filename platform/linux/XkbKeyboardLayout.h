#pragma once

#include <string>

#include "platform/KeyboardLayout.h"

namespace platform {

/// The layout in force, by libxkbcommon: that of the X server of DISPLAY, with its active group, as it is at
/// each question; without one what XKB_DEFAULT_LAYOUT and its kin say (xkb_rule_names of xkbcommon.h), else
/// the system's /etc/default/keyboard (keyboard(5)). No layout where the library or its data is not there.
///
/// Shift and Option change what a key produces, Option as the third level that AltGr leads to; Command and
/// Control do not. Keys of the number block produce their digits. A dead key produces nothing, as do keys
/// without a place on a Mac's keyboard.
class XkbKeyboardLayout : public KeyboardLayout {
 public:
  /// With another file in the place of the system's.
  explicit XkbKeyboardLayout(std::string defaults = "/etc/default/keyboard")
      : defaults_(std::move(defaults)) {}

  std::optional<KeyTranslation> translate(std::uint16_t keyCode, std::uint32_t modifierState) override;
  std::optional<std::uint16_t> keyCodeForScanCode(std::uint32_t scanCode) override;

 private:
  std::string defaults_;
};

}  // namespace platform
