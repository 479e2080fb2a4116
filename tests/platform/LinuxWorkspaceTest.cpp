#include "platform/linux/LinuxWorkspace.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "platform/fakes/FakePlatform.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using foundation::PropertyList;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kOpener = "/usr/bin/xdg-open";

class LinuxWorkspaceTest : public ::testing::Test {
 protected:
  /// An application whose program may be executed; answers the bundle's path.
  std::string application(const std::string& relative, const PropertyList::Dictionary& information,
                          const std::string& program) {
    computer.file(relative + "/Contents/Info.plist",
                  fake.propertyLists.serialize(information, PropertyListFormat::binary).value());
    fake.subprocesses.executables.insert(computer / (relative + "/Contents/MacOS/" + program));
    return computer / relative;
  }
  [[nodiscard]] std::vector<std::string> calls() const { return fake.recorder.lines(); }

  fakes::FakePlatform fake;
  TemporaryFolder computer;
  LinuxWorkspace workspace{computer.path()};
};

TEST_F(LinuxWorkspaceTest, ApplicationIsStartedByTheExecutableThatItNames) {
  const auto path = application("Compressor.app", {{"CFBundleExecutable", "main program"}}, "main program");
  EXPECT_TRUE(workspace.openFile(path));
  EXPECT_THAT(calls(), ElementsAre("run " + path + "/Contents/MacOS/main program"));
}

TEST_F(LinuxWorkspaceTest, ApplicationThatNamesNoneIsStartedByItsOwnName) {
  const auto path = application("Compressor.app", {}, "Compressor");
  EXPECT_TRUE(workspace.openFile(path));
  EXPECT_THAT(calls(), ElementsAre("run " + path + "/Contents/MacOS/Compressor"));
}

TEST_F(LinuxWorkspaceTest, WhatIsStartedHoldsNoneOfOurStreams) {
  EXPECT_TRUE(workspace.openFile(application("A.app", {}, "A")));
  ASSERT_EQ(fake.subprocesses.created.size(), 1U);
  const SubprocessOptions& options = fake.subprocesses.created.front();
  EXPECT_EQ(options.standardInput, Stream::nullDevice);
  EXPECT_EQ(options.standardOutput, Stream::nullDevice);
  EXPECT_EQ(options.standardError, Stream::nullDevice);
}

TEST_F(LinuxWorkspaceTest, RootStartsApplicationsAsTheConsoleUser) {
  fake.users.user = 0;
  fake.users.console = "bob";
  const auto path = application("Compressor.app", {}, "Compressor");
  EXPECT_TRUE(workspace.openFile(path));
  EXPECT_THAT(calls(), ElementsAre("run /Applications/Quillmend.app/Contents/SharedSupport/asuser bob -- " +
                                   path + "/Contents/MacOS/Compressor"));
}

TEST_F(LinuxWorkspaceTest, RootOpensNothingWithNobodyAtTheConsole) {
  fake.users.user = 0;
  fake.users.console = std::nullopt;
  fake.subprocesses.executables.insert(kOpener);
  EXPECT_FALSE(workspace.openFile(application("Compressor.app", {}, "Compressor")));
  EXPECT_FALSE(workspace.openFile(computer.file("a.txt")));
  EXPECT_FALSE(workspace.openURL("https://example.com/"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(LinuxWorkspaceTest, OtherFilesAndAddressesGoToTheDesktopsOpener) {
  fake.subprocesses.executables.insert(kOpener);
  const auto path = computer.file("a b.txt");
  EXPECT_TRUE(workspace.openFile(path));
  EXPECT_TRUE(workspace.openURL("https://example.com/?a=b&c"));
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/xdg-open " + path,
                                   "run /usr/bin/xdg-open https://example.com/?a=b&c"));
}

TEST_F(LinuxWorkspaceTest, RootHandsFilesAndAddressesToTheConsoleUsersOpener) {
  fake.users.user = 0;
  fake.subprocesses.executables.insert(kOpener);
  EXPECT_TRUE(workspace.openURL("https://example.com/"));
  EXPECT_THAT(calls(), ElementsAre("run /Applications/Quillmend.app/Contents/SharedSupport/asuser alice -- "
                                   "/usr/bin/xdg-open https://example.com/"));
}

TEST_F(LinuxWorkspaceTest, NothingIsOpenedWithoutAnOpener) {
  EXPECT_FALSE(workspace.openFile(computer.file("a.txt")));
  EXPECT_FALSE(workspace.openURL("https://example.com/"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(LinuxWorkspaceTest, MissingFilesAndOptionsInDisguiseAreNotOpened) {
  fake.subprocesses.executables.insert(kOpener);
  EXPECT_FALSE(workspace.openFile(computer / "missing"));
  EXPECT_FALSE(workspace.openFile("relative"));
  EXPECT_FALSE(workspace.openURL("--version"));
  EXPECT_FALSE(workspace.openURL(""));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(LinuxWorkspaceTest, ApplicationWithoutItsProgramIsNotStarted) {
  EXPECT_FALSE(workspace.openFile(computer.folder("Empty.app")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(LinuxWorkspaceTest, ProgramThatCannotBeStartedIsNoSuccess) {
  const auto path = application("A.app", {}, "A");
  fake.subprocesses.runs[path + "/Contents/MacOS/A"] = {
      .launchFailure = foundation::Exception(foundation::kInvalidArgumentException, "no such format")};
  EXPECT_FALSE(workspace.openFile(path));
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("no such format"));
}

TEST_F(LinuxWorkspaceTest, FileIsOpenedWithAnApplicationByItsPathOrName) {
  const auto viewer = application("Applications/Viewer.app", {{"CFBundleName", "Log Viewer"}}, "Viewer");
  const auto log = computer.file("a.log");
  EXPECT_TRUE(workspace.openFile(log, viewer));
  EXPECT_TRUE(workspace.openFile(log, "Viewer"));
  EXPECT_TRUE(workspace.openFile(log, "Viewer.app"));
  EXPECT_TRUE(workspace.openFile(log, "Log Viewer"));
  EXPECT_FALSE(workspace.openFile(log, "Other"));
  const std::string line = "run " + viewer + "/Contents/MacOS/Viewer " + log;
  EXPECT_THAT(calls(), ElementsAre(line, line, line, line));
}

TEST_F(LinuxWorkspaceTest, RecyclingMovesIntoTheTrash) {
  computer.file("Library/a.txt", "1");
  EXPECT_TRUE(workspace.recycle(computer / "Library", computer / ".Trash", {"a.txt"}));
  EXPECT_EQ(computer.content(".Trash/a.txt"), "1");
}

TEST_F(LinuxWorkspaceTest, FilePackagesAreFoldersThatTheDesktopShowsAsOneFile) {
  for (const char* name : {"A.app", "A.APP", "a.bundle", "a.prefPane", "a.rtfd", "a.mpkg", "a.dSYM"}) {
    EXPECT_TRUE(workspace.isFilePackage(computer.folder(name))) << name;
  }
  EXPECT_TRUE(workspace.isFilePackage(computer.folder("A.app") + "/"));
  EXPECT_FALSE(workspace.isFilePackage(computer.folder("A.framework")));
  EXPECT_FALSE(workspace.isFilePackage(computer.folder("Folder 3.5")));
  EXPECT_FALSE(workspace.isFilePackage(computer.file("file.app")));
  EXPECT_FALSE(workspace.isFilePackage(computer / "missing.app"));
}

TEST_F(LinuxWorkspaceTest, FolderIsAFilePackageWhenItsInfoPlistGivesItAPackageType) {
  EXPECT_TRUE(workspace.isFilePackage(application("x.unknown", {{"CFBundlePackageType", "BNDL"}}, "x")));
  EXPECT_FALSE(workspace.isFilePackage(application("y.unknown", {{"CFBundleName", "y"}}, "y")));
  EXPECT_FALSE(workspace.isFilePackage(application("z.framework", {{"CFBundlePackageType", "FMWK"}}, "z")));
}

}  // namespace
}  // namespace platform
