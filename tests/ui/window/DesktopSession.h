#pragma once

#include <QApplication>
#include <QTest>
#include <chrono>
#include <functional>
#include <string>

/// What tests of the window have in common. Their main program (Main.cpp) gives each test process a display of
/// its own.
namespace window {

/// Lets the toolkit work until the condition holds; answers whether it did in time.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  return QTest::qWaitFor(condition, static_cast<int>(limit.count()));
}

/// Writes what a widget looks like to <build>/screenshots/<name>.png.
void saveScreenshot(QWidget& widget, const std::string& name);

/// The same of the whole screen.
void saveScreen(const std::string& name);

/// A dark desktop's colours, and the ones that the test began with.
void useDarkPalette();
void useUsualPalette();

/// WCAG's contrast between two colours, 1 to 21.
[[nodiscard]] double contrast(const QColor& one, const QColor& other);

}  // namespace window
