#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/OSStatus.h"

namespace platform {

/// What a key press produces.
struct KeyTranslation {
  OSStatus status = noErr;
  std::string characters;  ///< UTF-8; "" where the key produces none, as a dead key does not
};

/// The keyboard layout in force, after the Mac's Text Input Source Services and UCKeyTranslate
/// (UnicodeUtilities.h).
class KeyboardLayout {
 public:
  virtual ~KeyboardLayout() = default;

  /// What the press of a key produces by itself: no key before it, no translate options, at most 255
  /// characters. The key code is the Mac's virtual one (Events.h), which stands for a place on the keyboard
  /// and not for a letter: 0 is the key right of Caps Lock whatever the layout. The modifier state holds the
  /// bits of an event's modifiers above the low byte: 0x01 Command, 0x02 Shift, 0x08 Option, 0x10 Control.
  /// Keys without a letter produce the Mac's characters: arrows 0x1C to 0x1F, Home 0x01, End 0x04, Page Up
  /// 0x0B, Page Down 0x0C. Function keys and Help, 0x10 and 0x05 on a Mac, produce names elsewhere: "F1",
  /// "Insert". paramErr for what is no key. Nothing (nullopt) where there is no layout.
  [[nodiscard]] virtual std::optional<KeyTranslation> translate(std::uint16_t keyCode,
                                                                std::uint32_t modifierState) = 0;

  /// The Mac's virtual key code of the key that the system knows by that scan code: on Linux the numbers of
  /// linux/input-event-codes.h. nullopt for a key that no Mac's keyboard has.
  [[nodiscard]] virtual std::optional<std::uint16_t> keyCodeForScanCode(std::uint32_t scanCode) = 0;
};

}  // namespace platform
