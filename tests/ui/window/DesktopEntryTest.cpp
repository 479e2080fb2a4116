#include <gmock/gmock.h>

#include <QFile>
#include <QImage>
#include <QProcess>
#include <QSettings>
#include <QSvgRenderer>

#include "tests/ui/window/DesktopSession.h"

// What a desktop shows the application by.

namespace window {
namespace {

const QString kEntry = QStringLiteral(SHARE "/applications/com.vordenworks.Quillmend.desktop");

QString iconFile(const char* size, const char* extension) {
  return QStringLiteral(SHARE "/icons/hicolor/%1/apps/com.vordenworks.Quillmend.%2")
      .arg(QString::fromLatin1(size), QString::fromLatin1(extension));
}

TEST(DesktopEntry, ItIsAValidOne) {
  QProcess validator;
  validator.setProcessChannelMode(QProcess::MergedChannels);
  validator.start(QStringLiteral("desktop-file-validate"), {kEntry});
  ASSERT_TRUE(validator.waitForFinished());
  EXPECT_EQ(validator.readAll().toStdString(), "");
  EXPECT_EQ(validator.exitCode(), 0);
}

TEST(DesktopEntry, ItsIconIsThereInEverySizeAndNoneIsBlank) {
  const QSettings entry(kEntry, QSettings::IniFormat);
  EXPECT_EQ(entry.value(QStringLiteral("Desktop Entry/Icon")).toString(),
            QStringLiteral("com.vordenworks.Quillmend"));
  for (const char* size :
       {"16x16", "22x22", "24x24", "32x32", "48x48", "64x64", "128x128", "256x256", "512x512"}) {
    const QImage icon(iconFile(size, "png"));
    EXPECT_EQ(QStringLiteral("%1x%2").arg(icon.width()).arg(icon.height()), QString::fromLatin1(size));
    EXPECT_EQ(icon.pixelColor(0, 0).alpha(), 0) << size;
    EXPECT_EQ(icon.pixelColor(icon.width() / 2, icon.height() / 5).alpha(), 255) << size;
  }
  EXPECT_TRUE(QSvgRenderer(iconFile("scalable", "svg")).isValid());
}

}  // namespace
}  // namespace window
