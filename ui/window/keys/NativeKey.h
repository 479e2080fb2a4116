#pragma once

#include <QKeyEvent>
#include <cstdint>
#include <optional>

#include "ui/ShortcutKeyOutlets.h"

/// What a key press is in the keyboard's own terms, which the toolkit tells in each system's way.
namespace nativekey {

enum class Keyboard { x11, mac };

/// The keyboard of the desktop that the toolkit runs on.
[[nodiscard]] Keyboard keyboardInUse();

/// The number by which the system knows the key: on X11 its scan code (linux/input-event-codes.h). A Mac's
/// scan codes are hidden from the toolkit, whose nativeScanCode() is 1 for every key there; its numbers are
/// the virtual key codes. nullopt for an event that comes from no key.
[[nodiscard]] std::optional<std::uint32_t> scanCodeOf(const QKeyEvent& event, Keyboard keyboard);

/// The modifier keys that are held. On X11 Command is the key with the desktop's mark (Super, Windows), and
/// AltGr is the right Option key. On a Mac the toolkit calls Command Control, and Control Meta.
[[nodiscard]] outlets::ModifierFlags flagsOf(const QKeyEvent& event, Keyboard keyboard);

}  // namespace nativekey
