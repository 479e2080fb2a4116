/// drawicon: draws a picture as the bitmaps that a desktop wants of an icon.
///
///     drawicon picture.svg folder name
///
/// writes folder/NxN/apps/name.png for each size N (freedesktop.org: Icon Theme), and a copy of
/// the picture as folder/scalable/apps/name.svg. Status 1 with a line on standard error when something is
/// wrong.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

namespace {

constexpr int kSides[] = {16, 22, 24, 32, 48, 64, 128, 256, 512};

bool complain(const QString& file) {
  std::fprintf(stderr, "drawicon: cannot use %s\n", qPrintable(file));
  return false;
}

/// The place of a file in the theme, whose folder is made.
QString placeFor(const QString& theme, const QString& size, const QString& file) {
  const QString folder = theme + u'/' + size + QStringLiteral("/apps");
  QDir().mkpath(folder);
  return folder + u'/' + file;
}

bool drawBitmap(QSvgRenderer& picture, int side, const QString& path) {
  QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  picture.render(&painter, QRectF(0, 0, side, side));
  painter.end();
  return image.save(path) || complain(path);
}

bool draw(const QString& source, const QString& theme, const QString& name) {
  QSvgRenderer picture(source);
  if (!picture.isValid()) return complain(source);
  for (const int side : kSides) {
    const QString size = QStringLiteral("%1x%1").arg(side);
    if (!drawBitmap(picture, side, placeFor(theme, size, name + QStringLiteral(".png")))) return false;
  }
  const QString copy = placeFor(theme, QStringLiteral("scalable"), name + QStringLiteral(".svg"));
  QFile::remove(copy);
  return QFile::copy(source, copy) || complain(copy);
}

}  // namespace

int main(int argc, char* argv[]) {
  const QCoreApplication toolkit(argc, argv);
  const QStringList arguments = QCoreApplication::arguments();
  if (arguments.size() != 4) {
    std::fputs("usage: drawicon picture.svg folder name\n", stderr);
    return 64;
  }
  return draw(arguments[1], arguments[2], arguments[3]) ? 0 : 1;
}
