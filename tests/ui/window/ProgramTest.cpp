#include <gmock/gmock.h>

#include <QProcess>
#include <filesystem>
#include <fstream>

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
  std::string run(const std::string& bundle = QUILLMEND_BUNDLE) {
    program.setProcessEnvironment(environment);
    program.setProcessChannelMode(QProcess::MergedChannels);
    program.start(QString::fromStdString(bundle + "/Contents/MacOS/Quillmend"), QStringList());
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

TEST_F(ProgramTest, AStartThatFailsIsToldAndEndsWithAFailureAndNoWindowIsEverShown) {
  program.start(QStringLiteral(FAILING_START), QStringList());
  ASSERT_TRUE(waitUntil([] { return hasKeyboard("failing_start"); }));
  EXPECT_EQ(windowCount("failing_start"), 1U) << "the panel";
  saveScreen("start-failed");
  press("Return");
  const auto isGone = [] { return windowCount("failing_start") == 0; };
  EXPECT_TRUE(waitUntil(isGone)) << "nothing comes behind it";
  EXPECT_TRUE(program.waitForFinished());
  EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(program.exitCode(), 1);
}

/// A copy of the program whose bundle lacks something.
class IncompleteProgramTest : public ProgramTest {
 protected:
  IncompleteProgramTest() {
    for (const char* const folder : {"MacOS", "Frameworks"}) {
      std::filesystem::create_directories(contents() + folder);
    }
    for (const char* const file : {"Info.plist", "MacOS/Quillmend"}) {
      std::filesystem::copy_file(original() + file, contents() + file);
    }
  }
  static std::string original() { return QUILLMEND_BUNDLE "/Contents/"; }
  [[nodiscard]] std::string bundle() const { return other / "Quillmend.app"; }
  [[nodiscard]] std::string contents() const { return bundle() + "/Contents/"; }
  [[nodiscard]] std::string module() const { return contents() + "Frameworks/libQuillmendWindow.so"; }
  void expectComplaint(const std::string& reason) {
    EXPECT_EQ(run(bundle()), "Quillmend: no window module: " + module() + ": " + reason + "\n");
    expectFailureThatLeftNothing();
  }

  support::TemporaryFolder other;
};

TEST_F(IncompleteProgramTest, WithoutTheWindowsModuleItSaysSoInOneLine) {
  expectComplaint("cannot open shared object file: No such file or directory");
}

TEST_F(IncompleteProgramTest, AModuleThatIsAnotherFileIsNone) {
  std::ofstream(module()) << std::string(5000, 'x');
  expectComplaint("invalid ELF header");
}

TEST_F(IncompleteProgramTest, AModuleWhoseEndIsMissingIsNone) {
  for (const std::uintmax_t length : {1000U, 5000U, 50000U, 100000U}) {
    std::filesystem::copy_file(original() + "Frameworks/libQuillmendWindow.so", module(),
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file(module(), length);
    expectComplaint("its end is missing");
  }
}

}  // namespace
}  // namespace window
