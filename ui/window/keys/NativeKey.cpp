#include "ui/window/keys/NativeKey.h"

#include <QGuiApplication>

namespace nativekey {
namespace {

/// The toolkit's numbers are those of X11, which count from 8.
constexpr quint32 kFirstScanCode = 8;

/// AltGr, which the toolkit has no modifier for, in what X11 says of the keyboard.
constexpr quint32 kThirdLevel = 0x80;

}  // namespace

Keyboard keyboardInUse() {
  return QGuiApplication::platformName() == QStringLiteral("cocoa") ? Keyboard::mac : Keyboard::x11;
}

std::optional<std::uint32_t> scanCodeOf(const QKeyEvent& event, Keyboard keyboard) {
  const quint32 code = event.nativeScanCode();
  if (keyboard == Keyboard::mac) {
    // Key 0 is one like any other; an event that somebody made up has no scan code.
    return code == 0 ? std::nullopt : std::optional<std::uint32_t>(event.nativeVirtualKey());
  }
  return code < kFirstScanCode ? std::nullopt : std::optional<std::uint32_t>(code - kFirstScanCode);
}

outlets::ModifierFlags flagsOf(const QKeyEvent& event, Keyboard keyboard) {
  const Qt::KeyboardModifiers modifiers = event.modifiers();
  const bool isMac = keyboard == Keyboard::mac;
  const bool isThirdLevel = !isMac && (event.nativeModifiers() & kThirdLevel) != 0;
  return {.shift = modifiers.testFlag(Qt::ShiftModifier),
          .control = modifiers.testFlag(isMac ? Qt::MetaModifier : Qt::ControlModifier),
          .option = modifiers.testFlag(Qt::AltModifier) || isThirdLevel,
          .command = modifiers.testFlag(isMac ? Qt::ControlModifier : Qt::MetaModifier)};
}

}  // namespace nativekey
