#include <gmock/gmock.h>

#include <QProcess>
#include <filesystem>

#include "tests/support/TemporaryFolder.h"
#include "tests/ui/window/DesktopSession.h"

namespace window {
namespace {

/// The real program where it cannot show anything.
class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest() {
    environment.insert(QStringLiteral("HOME"), QString::fromStdString(home.path()));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
  }
  /// What it said, on both streams.
  std::string run() {
    program.setProcessEnvironment(environment);
    program.setProcessChannelMode(QProcess::MergedChannels);
    program.start(QStringLiteral(QUILLMEND_BUNDLE "/Contents/MacOS/Quillmend"), QStringList());
    EXPECT_TRUE(program.waitForFinished());
    return program.readAll().toStdString();
  }
  void expectFailureThatLeftNothing() {
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(program.exitCode(), 1);
    EXPECT_TRUE(std::filesystem::is_empty(home.path()));
  }

  support::TemporaryFolder home;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  QProcess program;
};

TEST_F(ProgramTest, WithoutADisplayItSaysSoInOneLine) {
  environment.remove(QStringLiteral("DISPLAY"));
  EXPECT_EQ(run(), "Quillmend: no display: neither WAYLAND_DISPLAY nor DISPLAY is set\n");
  expectFailureThatLeftNothing();
}

TEST_F(ProgramTest, ADisplayThatIsNotThereIsNoneEither) {
  environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":4711"));
  EXPECT_EQ(run(), "Quillmend: no display: could not connect to display :4711\n");
  expectFailureThatLeftNothing();
}

TEST_F(ProgramTest, ADisplayThatTheToolkitCannotUseIsNoneEither) {
  environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("nonsense"));
  EXPECT_EQ(run(), "Quillmend: no display: Could not find the Qt platform plugin \"nonsense\" in \"\"\n");
  expectFailureThatLeftNothing();
}

}  // namespace
}  // namespace window
