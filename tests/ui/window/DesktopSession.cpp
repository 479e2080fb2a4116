#include "tests/ui/window/DesktopSession.h"

#include <QDir>
#include <QPalette>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QWidget>
#include <algorithm>
#include <cmath>

namespace window {
namespace {

QString fileFor(const std::string& name) {
  QDir().mkpath(QStringLiteral(SCREENSHOTS));
  return QStringLiteral(SCREENSHOTS "/%1.png").arg(QString::fromStdString(name));
}

double linear(double channel) {
  return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color) {
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

/// Whatever is not of the ground's colour.
QRect shownPart(const QImage& screen) {
  QRect part;
  const QRgb ground = screen.pixel(0, 0);
  for (int y = 0; y < screen.height(); ++y) {
    int left = 0;
    while (left < screen.width() && screen.pixel(left, y) == ground) ++left;
    if (left == screen.width()) continue;
    int right = screen.width() - 1;
    while (screen.pixel(right, y) == ground) --right;
    part |= QRect(QPoint(left, y), QPoint(right, y));
  }
  return part;
}

/// Their numbers.
QStringList windowsOf(const char* program) {
  const std::string found =
      xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--classname"),
               QStringLiteral("^%1$").arg(QString::fromLatin1(program))});
  return QString::fromStdString(found).split(u'\n', Qt::SkipEmptyParts);
}

}  // namespace

std::string xdotool(const QStringList& arguments) {
  QProcess tool;
  tool.start(QStringLiteral("xdotool"), arguments);
  tool.waitForFinished();
  return tool.readAllStandardOutput().trimmed().toStdString();
}

std::string activeWindow() {
  std::string number;
  static_cast<void>(waitUntil([&number] {
    number = xdotool({QStringLiteral("getactivewindow")});
    return !number.empty();
  }));
  return number;
}

void press(const char* keys) {
  xdotool({QStringLiteral("key"), QString::fromLatin1(keys)});
}

void type(const char* text) {
  xdotool({QStringLiteral("type"), QString::fromUtf8(text)});
}

std::size_t windowCount(const char* program) {
  return static_cast<std::size_t>(windowsOf(program).size());
}

bool hasKeyboard(const char* program) {
  const QString focused = QString::fromStdString(xdotool({QStringLiteral("getwindowfocus")}));
  return windowsOf(program).contains(focused);
}

std::string focusedTitle() {
  return xdotool({QStringLiteral("getwindowfocus"), QStringLiteral("getwindowname")});
}

void saveScreenshot(QWidget& widget, const std::string& name) {
  widget.grab().save(fileFor(name));
}

void saveScreen(const std::string& name) {
  const QImage screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
  screen.copy(shownPart(screen)).save(fileFor(name));
}

void useDarkPalette() {
  const QColor ground(0x2B, 0x2B, 0x2E);
  QPalette palette(QColor(0x3A, 0x3A, 0x3E), ground);
  palette.setColor(QPalette::Base, QColor(0x1E, 0x1E, 0x20));
  palette.setColor(QPalette::Text, QColor(0xE6, 0xE6, 0xE6));
  palette.setColor(QPalette::WindowText, QColor(0xE6, 0xE6, 0xE6));
  palette.setColor(QPalette::ButtonText, QColor(0xE6, 0xE6, 0xE6));
  palette.setColor(QPalette::PlaceholderText, QColor(0xA0, 0xA0, 0xA6));
  QApplication::setPalette(palette);
}

void useUsualPalette() {
  QApplication::setPalette(QPalette());
}

double contrast(const QColor& one, const QColor& other) {
  const double first = luminance(one);
  const double second = luminance(other);
  return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

}  // namespace window
