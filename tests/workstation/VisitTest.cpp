#include "workstation/Visit.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/workstation/RootTest.h"
#include "workstation/Layout.h"
#include "workstation/Records.h"
#include "workstation/Snapshot.h"
#include "workstation/TemporaryVolume.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;

class VisitTest : public RootTest {
 protected:
  static VisitResult shell(const Volume& volume, const std::string& line, const VisitOptions& options = {}) {
    return visit(volume, {"/bin/sh", "-c", line}, options);
  }
};

TEST_F(VisitTest, RunsAsRootUnlessToldOtherwise) {
  const TemporaryVolume sample({});
  EXPECT_THAT(visit(sample, {"/usr/bin/id"}).output, StartsWith("uid=0(root) gid=0(wheel)"));
}

TEST_F(VisitTest, RunsAsAUserOfTheVolumeWithTheirGroups) {
  const TemporaryVolume sample({});
  EXPECT_EQ(visit(sample, {"/usr/bin/id"}, {.user = "alice"}).output,
            "uid=501(alice) gid=20(staff) groups=20(staff),80(admin)\n");
  EXPECT_EQ(visit(sample, {"/usr/bin/id"}, {.user = "bob"}).output,
            "uid=502(bob) gid=20(staff) groups=20(staff)\n");
}

TEST_F(VisitTest, TheVolumeIsTheRootFolder) {
  const TemporaryVolume sample({});
  EXPECT_EQ(shell(sample, "cat '/Users/alice/Documents/Cut list.txt'; pwd", {.user = "alice"}).output,
            "scene 1, take 3\n/Users/alice\n");
  EXPECT_EQ(shell(sample, "echo kept > /Users/Shared/note").status, 0);
  EXPECT_TRUE(fs::exists(sample.volume().host("/Users/Shared/note")));
}

TEST_F(VisitTest, OutputErrorAndStatusAreTheCommands) {
  const TemporaryVolume sample({});
  const auto result = shell(sample, "echo out; echo err >&2; exit 7");
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.error, "err\n");
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(commandEnd(sample), "status 7");
}

TEST_F(VisitTest, ASignalThatEndsTheCommandIsToldAsAShellDoes) {
  const TemporaryVolume sample({});
  EXPECT_EQ(shell(sample, "kill -SEGV $$").status, 128 + SIGSEGV);
  EXPECT_EQ(commandEnd(sample), "signal 11");
}

TEST_F(VisitTest, SignalsReachTheCommand) {
  const TemporaryVolume sample({});
  Visit going(sample,
              {"/bin/sh", "-c", "trap 'echo ended; exit 3' TERM; echo ready; while :; do sleep 0.05; done"});
  ASSERT_TRUE(going.waitForOutput("ready", 10s));
  going.signal(SIGTERM);
  const auto result = going.wait();
  EXPECT_EQ(result.output, "ready\nended\n");
  EXPECT_EQ(result.status, 3);
}

TEST_F(VisitTest, TheEndWaitsForToolsThatOutliveTheCommand) {
  const TemporaryVolume sample({});
  shell(sample, "(sleep 0.5; echo done > /private/tmp/late) & exit 0");
  EXPECT_TRUE(fs::exists(sample.volume().host("/private/tmp/late")));
  EXPECT_GE(waitedForTools(sample), 300ms);
  EXPECT_THAT(remainingProcesses(sample), IsEmpty());
}

TEST_F(VisitTest, AToolThatNeverEndsIsReportedAndEnded) {
  const TemporaryVolume sample({});
  const auto result = shell(sample, "sleep 3600 >/dev/null 2>&1 & exit 0", {.patience = 200ms});
  EXPECT_EQ(result.status, 0);
  ASSERT_THAT(remainingProcesses(sample), SizeIs(1));
  EXPECT_FALSE(remainingProcesses(sample)[0].resident);
  EXPECT_THAT(remainingProcesses(sample)[0].arguments, ElementsAre("3600"));
}

TEST_F(VisitTest, WhatRunsAtTheEndRunsAtTheNextVisit) {
  const TemporaryVolume sample({.compressors = {{"3.5.3", "", true}}});
  EXPECT_EQ(visit(sample, {"true"}).status, 0);
  const auto first = remainingProcesses(sample);
  ASSERT_THAT(first, SizeIs(4));
  shell(sample, "qmasterprefs -stopSharing");
  shell(sample, "true");
  EXPECT_THAT(remainingProcesses(sample), SizeIs(3));
}

TEST_F(VisitTest, NothingOfTheVisitIsLeftInTheVolume) {
  const TemporaryVolume sample({.compressors = {{"4.0.7"}}});
  const fs::path bundle = sample.volume().host("/Applications/Compressor.app");
  const auto before = takeSnapshot(sample);
  EXPECT_EQ(visit(sample, {"true"}, {.bundle = bundle}).status, 0);
  EXPECT_THAT(takeSnapshot(sample).entries, ::testing::ContainerEq(before.entries));
}

TEST_F(VisitTest, TheBundleIsAtItsPlaceAndCannotBeChanged) {
  const TemporaryVolume sample({});
  const TemporaryVolume other({.compressors = {{"4.0.7"}}});
  const auto result =
      shell(sample, "ls /Applications/Quillmend.app/Contents; touch /Applications/Quillmend.app/x",
            {.bundle = other.volume().host("/Applications/Compressor.app")});
  EXPECT_THAT(result.output, HasSubstr("version.plist"));
  EXPECT_THAT(result.error, HasSubstr("Read-only file system"));
}

TEST_F(VisitTest, HostToolsAreThereAndHideNoStandIn) {
  const TemporaryVolume sample({});
  const auto result = shell(sample,
                            "for t in cp mv rm mkdir; do test -x /bin/$t || echo $t; done; "
                            "test -x /usr/bin/touch || echo touch; launchctl list");
  EXPECT_EQ(result.output, "PID\tStatus\tLabel\n");
  EXPECT_THAT(callTexts(sample), ElementsAre("0 /bin/launchctl list"));
}

TEST_F(VisitTest, TheEnvironmentIsTheUsersOwn) {
  const TemporaryVolume sample({});
  const auto result = visit(sample, {"/usr/bin/env"}, {.environment = {{"EXTRA", "a=b"}}});
  EXPECT_EQ(result.output,
            "PATH=/usr/bin:/bin:/usr/sbin:/sbin:/run/host/usr/bin\nHOME=/var/root\nUSER=root\nLOGNAME=root\n"
            "SHELL=/bin/sh\nLANG=C.UTF-8\nEXTRA=a=b\n");
}

constexpr const char* postSignal =
    "dbus-send --bus=unix:path=/run/user/501/bus --type=signal /a/b com.example.Test.Done "
    "string:name dict:string:string:output,'two words' int32:-3";

TEST_F(VisitTest, ASignalOfTheConsoleUsersIsHeard) {
  const TemporaryVolume sample({});
  EXPECT_EQ(shell(sample, postSignal, {.user = "alice"}).error, "");
  ASSERT_THAT(heardSignals(sample), SizeIs(1));
  const auto heard = heardSignals(sample)[0];
  EXPECT_EQ(heard.bus, "session");
  EXPECT_EQ(heard.path, "/a/b");
  EXPECT_EQ(heard.interface + '.' + heard.member, "com.example.Test.Done");
  EXPECT_THAT(heard.values, ElementsAre(Pair("0", "name"), Pair("1/output", "two words"), Pair("2", "-3")));
}

TEST_F(VisitTest, OnlyTheConsoleUserMayUseTheirSessionBus) {
  const TemporaryVolume sample({});
  EXPECT_NE(shell(sample, postSignal).status, 0);
  EXPECT_NE(shell(sample, postSignal, {.user = "bob"}).status, 0);
  EXPECT_THAT(heardSignals(sample), IsEmpty());
}

TEST_F(VisitTest, OnlyTheConsoleUserIsToldOfTheSessionBus) {
  const TemporaryVolume sample({});
  const std::string variable = "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/501/bus\n";
  EXPECT_THAT(visit(sample, {"env"}, {.user = "alice"}).output, HasSubstr(variable));
  EXPECT_THAT(visit(sample, {"env"}).output, Not(HasSubstr("DBUS")));
  EXPECT_THAT(visit(sample, {"env"}, {.user = "bob"}).output, Not(HasSubstr("DBUS")));
}

TEST_F(VisitTest, WithAGreeterOrNobodyThereIsNoSessionBus) {
  for (const char* console : {"greeter", ""}) {
    const TemporaryVolume sample({.consoleUser = console});
    EXPECT_EQ(shell(sample, "ls /run/user").output, "") << console;
  }
}

TEST_F(VisitTest, LinksInAToolsPlaceDoNotBarTheWay) {
  const TemporaryVolume sample(
      {.compressors = {{"3.5.3"}},
       .damage = {{"link-loop", "/usr/sbin/qmasterprefs"}, {"link-loop", "/bin/launchctl"}}});
  EXPECT_EQ(shell(sample, "exit 7").status, 7);
}

TEST_F(VisitTest, ASignalOfRootsOnTheSystemBusIsHeard) {
  const TemporaryVolume sample({.consoleUser = ""});
  const auto result =
      shell(sample, "dbus-send --system --type=signal /a com.example.Test.Done string:x; sleep 0.1",
            {.systemBus = true});
  EXPECT_EQ(result.error, "");
  ASSERT_THAT(heardSignals(sample), SizeIs(1));
  EXPECT_EQ(heardSignals(sample)[0].bus, "system");
}

constexpr const char* notify =
    "gdbus call --session --dest org.freedesktop.Notifications --object-path /org/freedesktop/Notifications "
    "--method org.freedesktop.Notifications.Notify Quillmend 0 icon Title 'A body' '[\"default\", \"Open\"]' "
    "'{\"urgency\": <byte 1>}' 5000";

TEST_F(VisitTest, NotificationsAreShownAndRecorded) {
  const TemporaryVolume sample({});
  const auto result = shell(sample, notify, {.user = "alice"});
  EXPECT_EQ(result.output, "(uint32 1,)\n") << result.error;
  ASSERT_THAT(shownNotifications(sample), SizeIs(1));
  const auto shown = shownNotifications(sample)[0];
  EXPECT_EQ(shown.application, "Quillmend");
  EXPECT_EQ(shown.summary, "Title");
  EXPECT_EQ(shown.body, "A body");
  EXPECT_EQ(shown.values.at("6/urgency"), "1");
}

TEST_F(VisitTest, ANotificationCanBeClickedAndCanExpire) {
  const std::string watch =
      "timeout 1 dbus-monitor --session \"interface='org.freedesktop.Notifications'\" & sleep 0.2; ";
  const TemporaryVolume clicked({});
  const auto click = shell(clicked, watch + notify + "; wait",
                           {.user = "alice", .notifications = NotificationAnswer::click});
  EXPECT_THAT(click.output, HasSubstr("member=ActionInvoked"));
  const TemporaryVolume expired({});
  const auto expire = shell(expired, watch + notify + "; wait",
                            {.user = "alice", .notifications = NotificationAnswer::expire});
  EXPECT_THAT(expire.output, Not(HasSubstr("member=ActionInvoked")));
  EXPECT_THAT(expire.output, HasSubstr("member=NotificationClosed"));
}

TEST_F(VisitTest, RootIsHeldToModeBitsWithoutTheCapability) {
  const TemporaryVolume sample({.damage = {{"unreadable", "/Library/Caches"}}});
  const std::vector<std::string> command{"/bin/sh", "-c", "test -r /Library/Caches"};
  EXPECT_EQ(visit(sample, command).status, 0);
  EXPECT_EQ(visit(sample, command, {.withoutCapabilities = {"dac_override", "dac_read_search"}}).status, 1);
}

TEST_F(VisitTest, WhatCannotBeExecutedGetsTheShellsStatus) {
  const TemporaryVolume sample({});
  EXPECT_EQ(visit(sample, {"/no/such/tool"}).status, 127);
  EXPECT_EQ(visit(sample, {"/Library"}).status, 126);
}

TEST_F(VisitTest, ThereIsNoWayIntoAFolderThatHoldsNoMac) {
  const TemporaryVolume sample({});
  const Volume folder(sample.volume().host("/private/tmp"));
  const auto result = visit(folder, {"true"});
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.error, HasSubstr("holds no Mac volume"));
  EXPECT_TRUE(fs::is_empty(folder.folder()));
}

TEST_F(VisitTest, AnUnknownUserOrBundleIsReported) {
  const TemporaryVolume sample({});
  const auto user = visit(sample, {"true"}, {.user = "carol"});
  EXPECT_EQ(user.status, 125);
  EXPECT_THAT(user.error, HasSubstr("no user \"carol\""));
  const auto bundle = visit(sample, {"true"}, {.bundle = "/no/such.app"});
  EXPECT_EQ(bundle.status, 125);
  EXPECT_THAT(bundle.error, HasSubstr("no bundle at /no/such.app"));
}

TEST_F(VisitTest, ASecondVisitAtTheSameTimeIsRefused) {
  const TemporaryVolume sample({});
  Visit going(sample, {"/bin/sh", "-c", "echo ready; exec sleep 60"});
  ASSERT_TRUE(going.waitForOutput("ready", 10s));
  const auto second = visit(sample, {"true"});
  EXPECT_EQ(second.status, 125);
  EXPECT_THAT(second.error, HasSubstr("another visit"));
  going.signal(SIGTERM);
  EXPECT_EQ(going.wait().status, 128 + SIGTERM);
}

TEST_F(VisitTest, AMacsPlainToolsAreCoveredByTheHosts) {
  const TemporaryVolume sample({});
  std::ofstream(sample.volume().host("/bin/cp")) << "\xcf\xfa\xed\xfe a program of a Mac's";
  const auto size = fs::file_size(sample.volume().host("/bin/cp"));
  EXPECT_EQ(shell(sample, "/bin/cp /etc/group /private/tmp/copy").error, "");
  EXPECT_TRUE(fs::exists(sample.volume().host("/private/tmp/copy")));
  EXPECT_EQ(fs::file_size(sample.volume().host("/bin/cp")), size);
}

TEST_F(VisitTest, AMacsToolsAreCoveredByTheirStandIns) {
  const TemporaryVolume sample({});
  std::ofstream(sample.volume().host("/usr/sbin/qmasterprefs")) << "\xca\xfe\xba\xbe a program of a Mac's";
  EXPECT_EQ(shell(sample, "/usr/sbin/qmasterprefs -reset").error, "");
  EXPECT_EQ(value(sample, "qmaster.resets"), "1");
}

TEST_F(VisitTest, ADamagedToolIsNotCovered) {
  const TemporaryVolume sample(
      {.compressors = {{"3.5.3"}}, .damage = {{"garbage", "/usr/sbin/qmasterprefs"}}});
  EXPECT_EQ(visit(sample, {"/usr/sbin/qmasterprefs", "-reset"}).status, 126);
}

TEST_F(VisitTest, PeopleOfARealMacAreKnownByTheirHomes) {
  const TemporaryVolume sample({.consoleUser = ""});
  std::ofstream(sample.volume().host("/etc/passwd")) << "root:*:0:0:System Administrator:/var/root:/bin/sh\n";
  const VisitOptions options{.user = "alice", .consoleUser = "alice"};
  EXPECT_THAT(visit(sample, {"/usr/bin/id"}, options).output, StartsWith("uid=501(alice) gid=20(staff)"));
  EXPECT_EQ(shell(sample, postSignal, options).error, "");
  EXPECT_THAT(heardSignals(sample), SizeIs(1));
}

}  // namespace
}  // namespace workstation
