#pragma once

#include <QApplication>
#include <QTest>
#include <chrono>
#include <functional>
#include <string>

/// What tests of the window have in common. Their main program (Main.cpp) gives each test process a display
/// of its own.
namespace window {

/// Lets the toolkit work until the condition holds; answers whether it did in time.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  return QTest::qWaitFor(condition, static_cast<int>(limit.count()));
}

/// Runs xdotool, which acts as a person at the keyboard and the mouse does; answers what it printed, without
/// the line break at its end.
std::string xdotool(const QStringList& arguments);

/// The number of the window that the window manager calls the active one, which it does a moment after it has
/// given it the keyboard.
std::string activeWindow();

/// Presses keys by their names: "ctrl+a".
void press(const char* keys);

/// Types a text.
void type(const char* text);

/// The windows on the screen of a program, by the name of its executable.
[[nodiscard]] std::size_t windowCount(const char* program);

/// Whether one of them has the keyboard.
[[nodiscard]] bool hasKeyboard(const char* program);

/// The title of the window that has the keyboard.
[[nodiscard]] std::string focusedTitle();

/// Writes what a widget looks like to <build>/screenshots/<name>.png.
void saveScreenshot(QWidget& widget, const std::string& name);

/// The same of all that is on the screen.
void saveScreen(const std::string& name);

/// A dark desktop's colours, and the ones that the test began with.
void useDarkPalette();
void useUsualPalette();

/// WCAG's contrast between two colours, 1 to 21.
[[nodiscard]] double contrast(const QColor& one, const QColor& other);

}  // namespace window
