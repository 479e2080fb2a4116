#include "tests/ui/window/DesktopSession.h"

#include <QDir>
#include <QPalette>
#include <QPixmap>
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

}  // namespace

void saveScreenshot(QWidget& widget, const std::string& name) {
  widget.grab().save(fileFor(name));
}

void saveScreen(const std::string& name) {
  QGuiApplication::primaryScreen()->grabWindow(0).save(fileFor(name));
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
