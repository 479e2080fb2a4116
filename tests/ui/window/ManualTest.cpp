#include <gmock/gmock.h>

#include <QAction>
#include <QFileInfo>
#include <QProcess>

#include "platform/foundation/Identifiers.h"
#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/FakeOwner.h"
#include "ui/window/MainWindow.h"

// The manual in the bundle, as somebody reads it.

namespace window {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const QString kManual = QStringLiteral(QUILLMEND_BUNDLE "/Contents/Resources/Quillmend User Manual.pdf");

std::string outputOf(const QString& tool, const QStringList& arguments) {
  QProcess program;
  program.start(tool, arguments);
  EXPECT_TRUE(program.waitForFinished());
  EXPECT_EQ(program.exitCode(), 0) << tool.toStdString();
  return program.readAllStandardOutput().toStdString();
}

/// All of it, however its lines are broken.
std::string text() {
  const std::string pages = outputOf(QStringLiteral("pdftotext"), {kManual, QStringLiteral("-")});
  return QString::fromStdString(pages).simplified().toStdString();
}

TEST(Manual, EveryMessageThatNeedsAnAnswerHasOne) {
  const std::string manual = text();
  for (const char* message :
       {"does not exist. You are advised to reinstall Compressor / Qmaster.",
        "is not readable... attempting fix.",
        "is not readable... unable to fix.",
        "Unsupported Compressor version... running in limited mode.",
        "Your computer does not have a computer name or local hostname set.",
        "Critical error: /Library/StartupItems/Qmaster/Qmaster cannot be found. Please reinstall Qmaster.",
        "Errors were found during processing.",
        "Repair stopped.",
        "Repair stopped: the display was lost",
        "Repair interrupted by signal",
        "Repair failed.",
        "Repair complete.",
        "Unable to authorize. Repair canceled.",
        "no display:",
        "no window module:",
        "Quillmend cannot be started",
        "must not be installed set-user-ID",
        "No log found",
        "Logs gathered successfully",
        "No logs found",
        "Logs could not be gathered",
        "Unable to copy log",
        "The password requirement was not changed",
        "The password was not accepted. Try again.",
        "The repair did not finish. See the log.",
        "Qmaster started",
        "Qmaster stopped",
        "Compressor preferences successfully trashed",
        "Compressor 4 preferences successfully trashed",
        "Compressor window layout successfully reset",
        "Please relaunch Compressor.",
        "Exception in",
        "Unable to locate qmasterprefs application at",
        "is not executable",
        "Unable to quit",
        "Unable to store the preference requireAdminPassword",
        "Unable to write the archive of the logs:",
        "Application crashed on last launch",
        "The display was lost during a command.",
        "Log truncated at 500KB"}) {
    EXPECT_NE(manual.find(message), std::string::npos) << message;
  }
}

TEST(Manual, EveryStepOfARepairIsExplained) {
  const std::string manual = text();
  for (const char* line :
       {"Starting repair...", "Waiting for Compressor to exit...", "Waiting for Compressor 4 to exit...",
        "Stopping Qmaster...", "Trashing preferences...", "Resetting window layout...",
        "Checking file permissions...", "Removing caches...", "Removing temporary spool data...",
        "Clearing history...", "Checking computer name...", "Attempting to start Qmaster...",
        "Relaunching menu bar icon..."}) {
    EXPECT_NE(manual.find(line), std::string::npos) << line;
  }
}

TEST(Manual, ItTellsTheVersionAndWhereHelpIs) {
  const std::string manual = text();
  EXPECT_THAT(manual, HasSubstr("Version 2.1"));
  EXPECT_THAT(manual, HasSubstr(std::string(identifiers::kWebSite) + "/software_bugreport.htm"));
  EXPECT_THAT(manual, Not(HasSubstr("@")));
  for (const char* scheduler : {"crontab -e", "systemctl enable", "launchctl load"}) {
    EXPECT_NE(manual.find(scheduler), std::string::npos) << scheduler;
  }
}

TEST(Manual, ItTellsWhichSettingsGoAndWhichStay) {
  EXPECT_THAT(text(), HasSubstr("Compressor 4 keeps its own file of settings (com.apple.Compressor.plist)."));
}

TEST(Manual, ItNamesTheCommandsAsTheMenusDo) {
  const std::string manual = text();
  FakeOwner owner;
  MainWindow window(owner);
  for (const char* name :
       {"repair", "viewLog", "viewTaskLog", "gatherLogs", "prefsAdminPass", "preferences",
        "menuRestartQmaster", "menuStopQmaster", "menuTrashCompressorPrefs", "menuTrashCompressor4Prefs",
        "resetWindowLayout", "manualUpdateCheck", "helpReportBug"}) {
    const auto* const action = window.findChild<QAction*>(QString::fromLatin1(name));
    EXPECT_THAT(manual, HasSubstr(action->text().remove(u'&').toStdString()));
  }
  window.setMayClose();
}

TEST(Manual, ItTellsWhereTheRequirementLiesThatTwoMustNotRepairAndWhereTheArchiveGoes) {
  const std::string manual = text();
  for (const char* words :
       {"com.vordenworks.Quillmend.plist", "requireAdminPassword", "Repair in one Quillmend at a time",
        "When the disk is full", "XDG_DESKTOP_DIR", "the window goes on answering"}) {
    EXPECT_NE(manual.find(words), std::string::npos) << words;
  }
}

TEST(Manual, TheWindowIsPicturedThreeTimes) {
  const std::string list = outputOf(QStringLiteral("pdfimages"), {QStringLiteral("-list"), kManual});
  EXPECT_EQ(QString::fromStdString(list).count(QStringLiteral(" 1120 ")), 3) << list;
}

}  // namespace
}  // namespace window
