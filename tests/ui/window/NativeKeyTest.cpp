#include "ui/window/keys/NativeKey.h"

#include <gtest/gtest.h>

#include <QInputDevice>

namespace nativekey {
namespace {

/// With a keyboard of its own: the one that the toolkit makes where there is no application is never given
/// back.
QKeyEvent press(Qt::KeyboardModifiers modifiers, quint32 scanCode, quint32 virtualKey, quint32 native = 0) {
  static const QInputDevice keyboard;
  return {QEvent::KeyPress, Qt::Key_S,           modifiers, scanCode, virtualKey,
          native,           QStringLiteral("s"), false,     1,        &keyboard};
}

TEST(NativeKeyTest, OnX11KeysAreCountedFromEight) {
  EXPECT_EQ(scanCodeOf(press(Qt::NoModifier, 39, 's'), Keyboard::x11), 31U);
  EXPECT_EQ(scanCodeOf(press(Qt::NoModifier, 8, 's'), Keyboard::x11), 0U);
  EXPECT_EQ(scanCodeOf(press(Qt::NoModifier, 7, 's'), Keyboard::x11), std::nullopt);
}

TEST(NativeKeyTest, OnAMacEveryKeyHasTheSameScanCodeAndItsVirtualOneCounts) {
  EXPECT_EQ(scanCodeOf(press(Qt::NoModifier, 1, 0x2D), Keyboard::mac), 0x2DU);
  EXPECT_EQ(scanCodeOf(press(Qt::NoModifier, 1, 0), Keyboard::mac), 0U) << "the letter A has this code";
  EXPECT_EQ(scanCodeOf(press(Qt::NoModifier, 0, 0), Keyboard::mac), std::nullopt);
}

TEST(NativeKeyTest, OnX11ControlIsControlAndTheDesktopsKeyIsCommand) {
  const auto control = flagsOf(press(Qt::ControlModifier, 39, 's'), Keyboard::x11);
  EXPECT_TRUE(control.control);
  EXPECT_FALSE(control.command);
  EXPECT_TRUE(flagsOf(press(Qt::MetaModifier, 39, 's'), Keyboard::x11).command);
  EXPECT_TRUE(flagsOf(press(Qt::NoModifier, 39, 's', 0x80), Keyboard::x11).option) << "AltGr";
}

TEST(NativeKeyTest, OnAMacTheToolkitCallsCommandControlAndControlMeta) {
  const auto command = flagsOf(press(Qt::ControlModifier | Qt::ShiftModifier, 1, 1), Keyboard::mac);
  EXPECT_TRUE(command.command);
  EXPECT_FALSE(command.control);
  EXPECT_TRUE(command.shift);
  const auto control = flagsOf(press(Qt::MetaModifier, 1, 1), Keyboard::mac);
  EXPECT_TRUE(control.control);
  EXPECT_FALSE(control.command);
  EXPECT_TRUE(flagsOf(press(Qt::AltModifier, 1, 1), Keyboard::mac).option);
  EXPECT_FALSE(flagsOf(press(Qt::NoModifier, 1, 1, 0x80), Keyboard::mac).option)
      << "X11's bit means nothing here";
}

}  // namespace
}  // namespace nativekey
