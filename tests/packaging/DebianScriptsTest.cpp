#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/packaging/DebianPackage.h"
#include "tests/packaging/Installation.h"
#include "tests/support/TemporaryFolder.h"

// The scripts that dpkg(1) runs when it installs, exchanges and removes the Debian package, called as
// deb-preinst(5) and its neighbours say.

namespace packaging {
namespace {

using support::contentOf;
using ::testing::ElementsAre;

/// What systemd shows of itself by /run/systemd/system, sd_booted(3).
enum class Systemd { runs, doesNot };

/// How systemctl(1) ends; or there is none.
enum class Systemctl { succeeds, fails, isMissing };

class DebianScriptsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: something else is mounted on /run";
    ofDebianPackage("--control", folder / "control");
  }

  /// What the script asks systemctl for. It succeeds, whatever comes of that.
  std::string asked(const std::string& script, const std::vector<std::string>& arguments, Systemd systemd,
                    Systemctl systemctl = Systemctl::succeeds) {
    const std::string told = folder.file("told");
    std::filesystem::remove(folder / "bin/systemctl");
    if (systemctl != Systemctl::isMissing) {
      const std::string status = systemctl == Systemctl::fails ? "1" : "0";
      const std::string program =
          folder.file("bin/systemctl", "#!/bin/sh\necho \"$*\" >>'" + told + "'\nexit " + status + "\n");
      EXPECT_EQ(::chmod(program.c_str(), 0755), 0);
    }
    const std::string sign = systemd == Systemd::runs ? "mkdir -p /run/systemd/system && " : "";
    std::vector<std::string> command = {
        "/usr/bin/unshare",
        "--mount",
        "/bin/sh",
        "-c",
        "mount -t tmpfs run /run && " + sign + "PATH=$1 && shift && exec \"$@\"",
        "sh",
        folder.folder("bin"),
        folder / ("control/" + script)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto run = support::runProgram(command);
    EXPECT_EQ(run.status, 0) << script;
    said = run.output;
    return contentOf(told);
  }

  const support::TemporaryFolder folder;
  std::string said;  ///< by the script, the last time
};

constexpr const char* kTimerGoes = "--quiet disable --now quillmend-repair.timer\n";
constexpr const char* kRepairEnds = "stop quillmend-repair.service\n";

TEST_F(DebianScriptsTest, AreThese) {
  EXPECT_THAT(filesBelow(folder / "control"),
              ElementsAre("control", "md5sums", "postinst", "postrm", "prerm"));
}

TEST_F(DebianScriptsTest, SwitchTheTimerOffAndThenLetARepairEndBeforeItsFilesAreRemoved) {
  EXPECT_EQ(asked("prerm", {"remove"}, Systemd::runs), std::string(kTimerGoes) + kRepairEnds);
  EXPECT_EQ(asked("prerm", {"remove", "in-favour", "other", "1"}, Systemd::runs),
            std::string(kTimerGoes) + kRepairEnds);
}

TEST_F(DebianScriptsTest, LetARepairEndBeforeItsFilesAreExchanged) {
  EXPECT_EQ(asked("prerm", {"upgrade", "9.9"}, Systemd::runs), kRepairEnds);
  EXPECT_EQ(asked("prerm", {"failed-upgrade", "1.0", "9.9"}, Systemd::runs), kRepairEnds);
}

TEST_F(DebianScriptsTest, LeaveARepairAloneWhileItsFilesStay) {
  EXPECT_EQ(asked("prerm", {"deconfigure", "in-favour", "other", "1"}, Systemd::runs), "");
}

TEST_F(DebianScriptsTest, SwitchTheTimerOffWhereSystemdDoesNotRun) {
  EXPECT_EQ(asked("prerm", {"remove"}, Systemd::doesNot), kTimerGoes);
  EXPECT_EQ(asked("prerm", {"upgrade", "9.9"}, Systemd::doesNot), "");
}

TEST_F(DebianScriptsTest, LetSystemdLookAtTheUnitsAgainWhereItRuns) {
  EXPECT_EQ(asked("postinst", {"configure", ""}, Systemd::runs), "daemon-reload\n");
  EXPECT_EQ(asked("postrm", {"remove"}, Systemd::runs), "daemon-reload\n");
  EXPECT_EQ(asked("postinst", {"configure", ""}, Systemd::doesNot), "");
  EXPECT_EQ(asked("postrm", {"remove"}, Systemd::doesNot), "");
}

TEST_F(DebianScriptsTest, StandInNobodysWayWhereSystemctlFailsOrIsMissing) {
  const struct {
    const char* script;
    const char* action;
    std::string all;  ///< that is tried all the same
  } calls[] = {{"prerm", "remove", std::string(kTimerGoes) + kRepairEnds},
               {"prerm", "upgrade", kRepairEnds},
               {"postinst", "configure", "daemon-reload\n"},
               {"postrm", "remove", "daemon-reload\n"}};
  for (const auto& call : calls) {
    EXPECT_EQ(asked(call.script, {call.action, "9.9"}, Systemd::runs, Systemctl::fails), call.all);
    EXPECT_EQ(asked(call.script, {call.action, "9.9"}, Systemd::runs, Systemctl::isMissing), "");
    EXPECT_EQ(asked(call.script, {call.action, "9.9"}, Systemd::doesNot, Systemctl::isMissing), "");
    EXPECT_EQ(said, "");
  }
}

}  // namespace
}  // namespace packaging
