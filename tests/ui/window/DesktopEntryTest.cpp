#include <gmock/gmock.h>
#include <sys/stat.h>

#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QSettings>
#include <QSvgRenderer>
#include <QTemporaryDir>

#include "tests/ui/window/DesktopSession.h"

// What a desktop shows the application by.

namespace window {
namespace {

using ::testing::HasSubstr;

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

/// The application as it is installed below a prefix, by a person whose files nobody else may read.
class Installed : public testing::Test {
 protected:
  void SetUp() override {
    const mode_t mask = ::umask(077);
    QProcess installer;
    installer.start(QStringLiteral(CMAKE_PROGRAM), {QStringLiteral("--install"), QStringLiteral(BUILD_FOLDER),
                                                    QStringLiteral("--prefix"), prefix()});
    const bool hasEnded = installer.waitForFinished(120000);
    ::umask(mask);
    ASSERT_TRUE(hasEnded);
    ASSERT_EQ(installer.exitCode(), 0) << installer.readAllStandardError().toStdString();
  }
  [[nodiscard]] QString path(const char* below) const { return prefix() + u'/' + QString::fromLatin1(below); }
  [[nodiscard]] virtual QString prefix() const { return folder_.path(); }
  [[nodiscard]] QString entryPath() const {
    return path("share/applications/com.vordenworks.Quillmend.desktop");
  }
  [[nodiscard]] QString entry() const {
    QFile file(entryPath());
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return QString::fromUtf8(file.readAll());
  }

 private:
  QTemporaryDir folder_;
};

TEST_F(Installed, TheProgramOfTheDesktopEntryIsOnThePathAndRuns) {
  const QString text = entry();
  EXPECT_THAT(text.toStdString(), HasSubstr("\nExec=\"" + path("bin/Quillmend").toStdString() + "\"\n"));
  EXPECT_THAT(text.toStdString(), HasSubstr("\nTryExec=" + path("bin/Quillmend").toStdString() + "\n"));
  QProcess program;
  program.start(path("bin/Quillmend"), {QStringLiteral("-help")});
  ASSERT_TRUE(program.waitForFinished());
  EXPECT_EQ(program.exitCode(), 0);
  EXPECT_TRUE(program.readAllStandardOutput().contains("-repair"));
}

/// Below a prefix with characters that mean something to the entry. No backslash: CMake takes it for a slash
/// in every prefix.
class InstalledInAnOddPlace : public Installed {
 protected:
  [[nodiscard]] QString prefix() const override {
    return Installed::prefix() + QStringLiteral(R"(/odd $place 100% "q" `tick`)");
  }
};

TEST_F(InstalledInAnOddPlace, ItsEntryIsValidAndNamesTheProgram) {
  QProcess validator;
  validator.setProcessChannelMode(QProcess::MergedChannels);
  validator.start(QStringLiteral("desktop-file-validate"), {entryPath()});
  ASSERT_TRUE(validator.waitForFinished());
  EXPECT_EQ(validator.readAll().toStdString(), "");
  const std::string text = entry().toStdString();
  EXPECT_THAT(text, HasSubstr(R"(/odd \\$place 100%% \\"q\\" \\`tick\\`/bin/Quillmend")"
                              "\n"));
  // No quotation there, only what every text of the file needs.
  EXPECT_THAT(text, HasSubstr("\nTryExec=" + Installed::prefix().toStdString()));
  EXPECT_THAT(text, HasSubstr(R"(/odd $place 100% "q" `tick`/bin/Quillmend)"
                              "\n"));
  EXPECT_TRUE(QFileInfo(path("bin/Quillmend")).isExecutable());
}

TEST_F(Installed, EverybodyMayReadAllAndRunThePrograms) {
  const auto everybody = QFile::ReadOther | QFile::ReadGroup | QFile::ReadOwner;
  const auto others = QFile::WriteOther | QFile::WriteGroup;
  const QDir source(QStringLiteral(QUILLMEND_BUNDLE));
  int files = 0;
  QDirIterator walk(source.path(), QDir::Files, QDirIterator::Subdirectories);
  while (walk.hasNext()) {
    const QFileInfo original(walk.next());
    const QFileInfo copy(path("lib/Quillmend.app/") + source.relativeFilePath(original.filePath()));
    ASSERT_TRUE(copy.exists()) << copy.filePath().toStdString();
    EXPECT_EQ(copy.size(), original.size()) << copy.filePath().toStdString();
    EXPECT_EQ(copy.permissions() & everybody, everybody) << copy.filePath().toStdString();
    EXPECT_EQ(copy.permissions() & others, 0) << copy.filePath().toStdString();
    EXPECT_EQ(copy.permission(QFile::ExeOther), original.permission(QFile::ExeOwner))
        << copy.filePath().toStdString();
    ++files;
  }
  EXPECT_GT(files, 10);
  EXPECT_TRUE(QFileInfo(path("share/icons/hicolor/scalable/apps")).permission(QFile::ExeOther));
}

}  // namespace
}  // namespace window
