#include "workstation/Report.h"

#include <gmock/gmock.h>

#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"
#include "workstation/Visit.h"

namespace workstation {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ReportTest : public RootTest {
 protected:
  /// What is told after a line of shell was run as root.
  static std::string after(const Plan& plan, const std::string& line) {
    const TemporaryVolume sample(plan);
    const auto before = takeSnapshot(sample);
    const auto result = visit(sample, {"/bin/sh", "-c", line});
    EXPECT_EQ(result.status, 0) << result.error;
    return visitReport(sample, before, takeSnapshot(sample));
  }
};

TEST_F(ReportTest, TellsInWhoseTrashThingsLie) {
  EXPECT_THAT(after({}, "mv '/Users/alice/Documents/Cut list.txt' /Users/bob/.Trash/"),
              HasSubstr("In bob's trash\n    Cut list.txt                                    from "
                        "/Users/alice/Documents\n"));
}

TEST_F(ReportTest, EachThingInATrashIsToldByItsOwnName) {
  const auto report = after({.compressors = {{"3.5.3"}}},
                            "cd /Users/alice/Library/Preferences && "
                            "mv com.apple.BatchMonitor.plist com.apple.compressor.Compressor.plist "
                            "/Users/alice/.Trash/");
  EXPECT_THAT(report, HasSubstr("    com.apple.BatchMonitor.plist "));
  EXPECT_THAT(report, HasSubstr("    com.apple.compressor.Compressor.plist "));
}

TEST_F(ReportTest, AFolderExchangedForAFreshOneIsEmptied) {
  const auto report = after({.compressors = {{"3.5.3"}}},
                            "cd /private/var/spool && mv qmaster /Users/alice/.Trash/ && mkdir qmaster");
  EXPECT_THAT(report, HasSubstr("Emptied\n    /private/var/spool/qmaster "));
  EXPECT_THAT(report, Not(HasSubstr("Created")));
}

TEST_F(ReportTest, ManyFilesOfAFolderTakeOneLine) {
  const auto report = after({.compressors = {{"3.5.3"}}, .spoolFiles = 1200},
                            "mkdir /Users/alice/.Trash/qmaster && cd /private/var/spool/qmaster && "
                            "mv * /Users/alice/.Trash/qmaster/");
  EXPECT_THAT(
      report,
      HasSubstr("    1,200 items in qmaster                          from /private/var/spool/qmaster\n"));
  EXPECT_THAT(report, Not(HasSubstr("job-000001")));
  EXPECT_THAT(report, Not(HasSubstr("Created")));
}

TEST_F(ReportTest, AFolderThatChangedWithAllInsideTakesOneLine) {
  EXPECT_THAT(
      after({.compressors = {{"3.5.3"}}}, "chown -R 501 /Library/Frameworks/AECore.framework"),
      HasSubstr("    /Library/Frameworks/AECore.framework            owner root:wheel became alice:wheel, "
                "with 8 inside\n"));
}

TEST_F(ReportTest, TellsOfToolsStateAndProcesses) {
  const auto report = after({.compressors = {{"3.5.3"}}}, "qmasterprefs -stopSharing");
  EXPECT_THAT(report, HasSubstr("     0.000 s  root    /usr/sbin/qmasterprefs -stopSharing\n"));
  EXPECT_THAT(report, HasSubstr("    Qmaster sharing                                 on became off\n"));
  EXPECT_THAT(report, HasSubstr("No longer running\n    root    /usr/sbin/qmasterca\n"));
  EXPECT_THAT(report, HasSubstr("No file or folder has changed"));
}

TEST_F(ReportTest, TellsWhatIsOnAVolume) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}, {"4.0.7"}}, .spoolFiles = 8});
  const auto report = volumeReport(sample, takeSnapshot(sample));
  EXPECT_THAT(report, HasSubstr("Compressor\n    /Applications/Compressor.app\n"
                                "    /Applications/Final Cut Studio/Compressor.app\n"));
  EXPECT_THAT(report, HasSubstr("2 files"));
  EXPECT_THAT(report, HasSubstr("Edit Suite 4"));
}

}  // namespace
}  // namespace workstation
