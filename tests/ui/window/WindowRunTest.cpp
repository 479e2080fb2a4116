#include <gmock/gmock.h>
#include <unistd.h>

#include <QClipboard>
#include <QCursor>
#include <QElapsedTimer>
#include <QProcess>
#include <thread>

#include "tests/ui/window/DesktopSession.h"
#include "tests/workstation/RepairScript.h"
#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

// The real program's real window on a sample workstation, driven by the keyboard and the mouse.

namespace workstation {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// A visit that finds this test's display.
VisitOptions windowVisit() {
  VisitOptions options = programVisit();
  options.environment = {{"DISPLAY", qgetenv("DISPLAY").toStdString()}};
  options.readOnly = {{"/tmp/.X11-unix", "/private/tmp/.X11-unix"},
                      {"/usr/share/fonts", "/usr/share/fonts"},
                      {"/usr/share/X11", "/usr/share/X11"},
                      {"/usr/share/fontconfig", "/usr/share/fontconfig"},
                      {"/etc/fonts", "/private/etc/fonts"}};
  return options;
}

/// The program with its window on a volume.
class WindowRun {
 public:
  explicit WindowRun(const Volume& volume, const VisitOptions& options = windowVisit())
      : volume_(volume), before_(takeSnapshot(volume)), visit_(volume, {quillmend}, options) {
    EXPECT_TRUE(window::waitUntil([] { return window::focusedTitle() == "Quillmend"; }, 30s)) << "no window";
    identifier_ = window::xdotool({QStringLiteral("getactivewindow")});
  }

  /// The number of the program's windows on the screen.
  [[nodiscard]] static std::size_t windowCount() {
    const std::string found = window::xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                       QStringLiteral("--name"), QStringLiteral("^Quillmend$")});
    return found.empty() ? 0 : split(found, '\n').size();
  }

  /// The console's text, as copying gives it.
  [[nodiscard]] static std::string consoleText() {
    QGuiApplication::clipboard()->setText(QStringLiteral("nothing"));
    window::press("ctrl+a");
    window::press("ctrl+c");
    const auto isThere = [] { return QGuiApplication::clipboard()->text() != QStringLiteral("nothing"); };
    EXPECT_TRUE(window::waitUntil(isThere));
    return QGuiApplication::clipboard()->text().toStdString();
  }

  /// Waits for the alert at the end of a repair.
  static void waitForAlert() {
    EXPECT_TRUE(window::waitUntil([] { return windowCount() == 2; }, 90s)) << "no alert";
    std::this_thread::sleep_for(300ms);  // for the picture: the sheet is drawn
  }

  /// Waits until the log says so.
  void waitForLog(const std::string& entry) const {
    const auto isThere = [&] {
      const auto log = readLog(volume_, "/Library/Logs/Vordenworks/Quillmend.1.log");
      return log && std::find(log->entries.begin(), log->entries.end(), entry) != log->entries.end();
    };
    EXPECT_TRUE(window::waitUntil(isThere, 60s)) << entry;
  }

  void resize(const char* width, const char* height) const {
    window::xdotool({QStringLiteral("windowsize"), QStringLiteral("--sync"), QString::fromStdString(identifier_),
             QString::fromLatin1(width), QString::fromLatin1(height)});
    std::this_thread::sleep_for(300ms);
  }

  void signal(int number) { visit_.signal(number); }
  [[nodiscard]] Outcome end() { return outcomeOf(volume_, visit_.wait(), std::move(before_)); }

 private:
  const Volume& volume_;
  Snapshot before_;
  Visit visit_;
  std::string identifier_;
};

class WindowRunTest : public RootTest {
 protected:
  static Plan compressors(std::vector<CompressorCopy> copies, std::vector<Damage> damage = {}) {
    return {.compressors = std::move(copies), .logFolder = true, .damage = std::move(damage)};
  }
};

TEST_F(WindowRunTest, ARepairFromTheWindowSaysWhatOneWithoutAWindowSays) {
  const std::vector<CompressorCopy> copies{{"3.5.3"}, {"4.0.7"}};
  const TemporaryVolume other(compressors(copies));
  const auto without = run(other, {"-repair", "-trash"});
  const TemporaryVolume sample(compressors(copies));
  WindowRun program(sample);
  window::saveScreen("empty");
  window::press("ctrl+r");
  program.waitForLog("Checking file permissions...");
  window::saveScreen("repairing");
  WindowRun::waitForAlert();
  window::saveScreen("alert");
  window::press("Return");
  ASSERT_TRUE(window::waitUntil([] { return WindowRun::windowCount() == 1; }));
  ASSERT_THAT(without.finished.size(), 1U);
  EXPECT_EQ(WindowRun::consoleText(), without.finished.front());
  window::press("End");
  window::saveScreen("repaired");
  window::press("ctrl+q");
  const auto outcome = program.end();
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_EQ(outcome.callTexts(), without.callTexts());
  EXPECT_THAT(outcome.finished, IsEmpty());
}

TEST_F(WindowRunTest, ErrorsAreRedAndTheAlertTellsOfThem) {
  const TemporaryVolume sample(compressors({{"3.5.3"}}, {{"missing", "/usr/sbin/qmasterca"}}));
  WindowRun program(sample);
  window::press("alt+r");
  WindowRun::waitForAlert();
  window::saveScreen("alert-of-errors");
  window::press("Return");
  ASSERT_TRUE(window::waitUntil([] { return WindowRun::windowCount() == 1; }));
  window::saveScreen("errors");
  EXPECT_THAT(WindowRun::consoleText(), HasSubstr("'/usr/sbin/qmasterca' does not exist."));
  program.resize("480", "360");
  window::saveScreen("narrow");
  window::press("ctrl+w");
  EXPECT_EQ(program.end().visit.status, 0);
}

TEST_F(WindowRunTest, AtTwiceTheDensityEverythingIsTwiceAsSharp) {
  const TemporaryVolume sample(compressors({{"4.0.7"}}));
  VisitOptions options = windowVisit();
  options.environment.emplace_back("QT_SCALE_FACTOR", "2");
  WindowRun program(sample, options);
  window::press("ctrl+r");
  WindowRun::waitForAlert();
  window::press("Return");
  ASSERT_TRUE(window::waitUntil([] { return WindowRun::windowCount() == 1; }));
  window::saveScreen("double");
  window::press("ctrl+q");
  EXPECT_EQ(program.end().visit.status, 0);
}

TEST_F(WindowRunTest, ClosingInMidRepairAsksAndThenLetsTheStepEnd) {
  const TemporaryVolume sample(compressors({{"3.5.3"}}));
  WindowRun program(sample);
  window::press("ctrl+r");
  program.waitForLog("Stopping Qmaster...");
  window::press("ctrl+q");
  ASSERT_TRUE(window::waitUntil([] { return WindowRun::windowCount() == 2; })) << "no question";
  std::this_thread::sleep_for(300ms);
  window::saveScreen("question");
  window::press("alt+q");
  const auto outcome = program.end();
  EXPECT_EQ(outcome.visit.status, 0);
  const auto log = readLog(sample, "/Library/Logs/Vordenworks/Quillmend.1.log");
  ASSERT_TRUE(log);
  EXPECT_EQ(log->entries.back(),
            "Repair stopped. Qmaster was started again; run the repair again to finish it.");
  EXPECT_THAT(log->entries, Not(Contains("Removing caches...")));
  EXPECT_THAT(outcome.running, Contains("root /usr/sbin/qmasterd"));
}

TEST_F(WindowRunTest, StayingInMidRepairLetsItGoOn) {
  const TemporaryVolume sample(compressors({{"4.0.7"}}));
  WindowRun program(sample);
  window::press("ctrl+r");
  program.waitForLog("Stopping Qmaster...");
  window::press("ctrl+q");
  ASSERT_TRUE(window::waitUntil([] { return WindowRun::windowCount() == 2; })) << "no question";
  window::press("Return");
  ASSERT_TRUE(window::waitUntil([] { return WindowRun::windowCount() == 1; }));
  WindowRun::waitForAlert();
  window::press("Return");
  EXPECT_THAT(WindowRun::consoleText(), HasSubstr(successSummary));
  window::press("ctrl+q");
  EXPECT_EQ(program.end().visit.status, 0);
}

TEST_F(WindowRunTest, ASignalInMidRepairLetsTheStepEndAndEndsTheProgramByIt) {
  const TemporaryVolume sample(compressors({{"3.5.3"}}));
  WindowRun program(sample);
  window::press("ctrl+r");
  program.waitForLog("Stopping Qmaster...");
  program.signal(SIGTERM);
  const auto outcome = program.end();
  EXPECT_EQ(outcome.visit.status, 128 + SIGTERM);
  EXPECT_THAT(outcome.running, Contains("root /usr/sbin/qmasterd"));
}

TEST_F(WindowRunTest, TheCheckBoxesAndThePlaceAreRemembered) {
  const TemporaryVolume sample(compressors({}));
  {
    WindowRun program(sample);
    window::press("alt+p");
    program.resize("500", "400");
    window::press("ctrl+q");
    EXPECT_EQ(program.end().visit.status, 0);
  }
  const auto list =
      contentsOf(sample.volume().host("/private/var/root/Library/Preferences/com.vordenworks.Quillmend.plist").string()).value_or("");
  EXPECT_THAT(list, HasSubstr("shouldTrash"));
  EXPECT_THAT(list, HasSubstr(" 500 400"));
  WindowRun again(sample);
  const std::string geometry = window::xdotool({QStringLiteral("getactivewindow"), QStringLiteral("getwindowgeometry")});
  EXPECT_THAT(geometry, HasSubstr("500x400"));
  window::press("ctrl+r");
  WindowRun::waitForAlert();
  window::press("Return");
  window::press("ctrl+q");
  EXPECT_EQ(again.end().visit.status, 0);
}

}  // namespace
}  // namespace workstation
