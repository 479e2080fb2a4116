#include "ui/window/LogoView.h"

#include <QIcon>
#include <QPainter>

namespace window {
namespace {

constexpr const char* kPicture = ":/Quillmend.svg";

}  // namespace

LogoView::LogoView(QWidget* parent) : QWidget(parent), picture_(QString::fromLatin1(kPicture)) {
  picture_.setViewBox(QRectF(32, 32, 448, 448));  // without the margin that the desktop wants around an icon
  setFixedSize(kSide, kSide);
}

void LogoView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  picture_.render(&painter, QRectF(rect()));
}

QIcon applicationIcon() {
  QSvgRenderer picture(QString::fromLatin1(kPicture));
  QIcon icon;
  for (const int side : {16, 24, 32, 48, 64, 128, 256}) {
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    picture.render(&painter, QRectF(0, 0, side, side));
    painter.end();
    icon.addPixmap(pixmap);
  }
  return icon;
}

}  // namespace window
