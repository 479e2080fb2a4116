#include "helpers/TrashTool.h"

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <cerrno>
#include <csignal>
#include <set>

#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"
#include "tests/support/FailingCall.h"

namespace helpers {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class TrashToolTest : public ::testing::Test {
 protected:
  TrashToolTest() : surroundings_(volume_.surroundings()) {}

  void SetUp() override { QUILLMEND_NEEDS_ROOT(); }

  ExitStatus run(const std::vector<std::string>& arguments) {
    return TrashTool(surroundings_, report_).run(arguments);
  }
  void nobodyAtTheConsole() {
    surroundings_.consoleAccount = [] { return std::optional<Account>(); };
  }
  std::string stamp() { return surroundings_.now().formattedLocally("%Y%m%d%H%M%S"); }

  TestVolume volume_;
  Surroundings surroundings_;
  RecordedReport report_;
};

TEST_F(TrashToolTest, WhatLiesInAHomeGoesToThatUsersTrash) {
  volume_.makeFile("Users/bob/Library/Preferences/x.plist", "bob's");
  EXPECT_EQ(run({"/Users/bob/Library/Preferences/x.plist"}), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.read("Users/bob/.Trash/x.plist"), "bob's");
  EXPECT_FALSE(volume_.exists("Users/bob/Library/Preferences/x.plist"));
  EXPECT_EQ(volume_.status("Users/bob/.Trash").st_uid, TestVolume::kBob);
  EXPECT_EQ(volume_.mode("Users/bob/.Trash"), 0700U);
}

TEST_F(TrashToolTest, WhatLiesInNoHomeGoesToTheConsoleUsersTrash) {
  volume_.makeFile("Library/Application Support/Apple Qmaster/jobcontroller:x.plist");
  EXPECT_EQ(run({"/Library/Application Support/Apple Qmaster/jobcontroller:x.plist"}), ExitStatus::done);
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre("jobcontroller:x.plist"));
}

TEST_F(TrashToolTest, WithNobodyAtTheConsoleItGoesToRootsTrash) {
  nobodyAtTheConsole();
  volume_.makeFile("Library/Stuff/x");
  EXPECT_EQ(run({"/Library/Stuff/x"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("var/root/.Trash"), ElementsAre("x"));
}

TEST_F(TrashToolTest, AHomeWithoutAccountHasItsOwnTrash) {
  volume_.makeFile("Users/guest/x");
  volume_.own("Users/guest", 4299);
  EXPECT_EQ(run({"/Users/guest/x"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("Users/guest/.Trash"), ElementsAre("x"));
  EXPECT_EQ(volume_.status("Users/guest/.Trash").st_uid, 4299U);
}

TEST_F(TrashToolTest, SharedFilesGoToTheConsoleUsersTrash) {
  volume_.makeFile("Users/Shared/Stuff/x");
  EXPECT_EQ(run({"/Users/Shared/Stuff/x"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre("x"));
}

TEST_F(TrashToolTest, ASystemAccountsHomeHasNoTrash) {
  volume_.makeFile("usr/sbin/old");
  EXPECT_EQ(run({"/usr/sbin/old"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre("old"));
}

TEST_F(TrashToolTest, ANameThatIsTakenGetsTheMomentAndNothingIsReplaced) {
  for (int i = 0; i < 3; ++i) {
    volume_.makeFile("Users/alice/a.txt", std::to_string(i));
    EXPECT_EQ(run({"/Users/alice/a.txt"}), ExitStatus::done);
  }
  EXPECT_EQ(volume_.read("Users/alice/.Trash/a.txt"), "0");
  EXPECT_EQ(volume_.read("Users/alice/.Trash/a_" + stamp() + ".txt"), "1");
  EXPECT_EQ(volume_.read("Users/alice/.Trash/a_" + stamp() + "_2.txt"), "2");
}

TEST_F(TrashToolTest, ANameOf255BytesIsCutWhereItIsTaken) {
  const std::string name(255, 'n');
  for (int i = 0; i < 2; ++i) {
    volume_.makeFile("Users/alice/" + name);
    EXPECT_EQ(run({"/Users/alice/" + name}), ExitStatus::done) << report_.text();
  }
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ::testing::SizeIs(2));
}

TEST_F(TrashToolTest, NastyNamesAreHandledByteForByte) {
  const std::set<std::string> names = {"-R", "a\nb", "\xff\xfe", " ", "...", "a:b"};
  for (const std::string& name : names) {
    volume_.makeFile("Users/alice/x/" + name);
    EXPECT_EQ(run({"/Users/alice/x/" + name}), ExitStatus::done);
  }
  const auto trashed = volume_.names("Users/alice/.Trash");
  EXPECT_EQ(std::set<std::string>(trashed.begin(), trashed.end()), names);
}

TEST_F(TrashToolTest, ALinkIsTrashedItselfAndItsTargetStays) {
  volume_.makeFile("Users/alice/real/file");
  volume_.makeLink("real", "Users/alice/link");
  EXPECT_EQ(run({"/Users/alice/link"}), ExitStatus::done);
  EXPECT_TRUE(volume_.exists("Users/alice/real/file"));
  EXPECT_TRUE(S_ISLNK(volume_.status("Users/alice/.Trash/link").st_mode));
}

TEST_F(TrashToolTest, OwnerModeAndTimesStayTheSame) {
  volume_.makeFile("Users/alice/x", "x", 0640);
  volume_.own("Users/alice/x", TestVolume::kBob);
  const timespec times[2] = {{1000, 0}, {2000, 0}};
  utimensat(AT_FDCWD, volume_.path("Users/alice/x").c_str(), times, 0);
  EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::done);
  const auto status = volume_.status("Users/alice/.Trash/x");
  EXPECT_EQ(status.st_uid, TestVolume::kBob);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(status.st_mtime, 2000);
}

TEST_F(TrashToolTest, WhatDoesNotExistIsDoneWithoutEffect) {
  EXPECT_EQ(run({"/Users/alice/nothing"}), ExitStatus::done);
  EXPECT_EQ(run({"/Users/alice/nothing/below"}), ExitStatus::done);
  EXPECT_EQ(run({"-dircontents", "/Users/alice/nothing"}), ExitStatus::done);
  EXPECT_EQ(run({"-spooldir", "/Users/alice/nothing"}), ExitStatus::done);
  EXPECT_FALSE(volume_.exists("Users/alice/.Trash"));
  EXPECT_EQ(report_.text(), "");
}

TEST_F(TrashToolTest, TheRelativePathOfARepairIsRefusedHarmlessly) {
  volume_.makeFile("StartupItems/Qmaster/.disabled");
  EXPECT_EQ(run({"StartupItems/Qmaster/.disabled"}), ExitStatus::usage);
  EXPECT_TRUE(volume_.exists("StartupItems/Qmaster/.disabled"));
}

TEST_F(TrashToolTest, WrongArgumentsAreRefused) {
  volume_.makeFile("x/y");
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {""},
                                                       {"-spooldir"},
                                                       {"-dircontents"},
                                                       {"-all", "/x"},
                                                       {"/x", "-spooldir"},
                                                       {"/x", "/y"},
                                                       {"-spooldir", "x"},
                                                       {"-dircontents", ""},
                                                       {"-spooldir", "/x", "/x"},
                                                       {"-SPOOLDIR", "/x"}};
  for (const auto& arguments : wrong) EXPECT_EQ(run(arguments), ExitStatus::usage);
  EXPECT_TRUE(volume_.exists("x/y"));
}

TEST_F(TrashToolTest, ProtectedFoldersAndTrashesAreRefused) {
  volume_.makeFile("Users/alice/Library/Caches/x");
  volume_.makeFile("Users/alice/.Trash/x");
  volume_.makeFile("Volumes/Disk/.Trashes/501/x");
  for (const char* path : {"/", "/Users", "/Users/alice", "/Users/alice/Library/Caches",
                           "/Users/alice/.Trash", "/Volumes/Disk", "/Volumes/Disk/.Trashes"}) {
    EXPECT_EQ(run({path}), ExitStatus::refused) << path;
  }
  for (const char* option : {"-dircontents", "-spooldir"}) {
    EXPECT_EQ(run({option, "/Users/alice/Library/Caches"}), ExitStatus::refused);
    EXPECT_EQ(run({option, "/Users/alice/Library/../Library/Caches/"}), ExitStatus::refused);
  }
  EXPECT_TRUE(volume_.exists("Users/alice/Library/Caches/x"));
  EXPECT_TRUE(volume_.exists("Users/alice/.Trash/x"));
}

TEST_F(TrashToolTest, ATrashThatIsALinkIsNotUsedAndTheDataStays) {
  volume_.makeFile("Users/alice/x");
  volume_.makeFolder("etc");
  volume_.makeLink("/etc", "Users/alice/.Trash");
  EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::failed);
  EXPECT_TRUE(volume_.exists("Users/alice/x"));
  EXPECT_THAT(volume_.names("etc"), IsEmpty());
  EXPECT_THAT(report_.text(), HasSubstr("/Users/alice/.Trash: not a folder"));
}

TEST_F(TrashToolTest, ATrashThatIsAFileOrSomebodyElsesIsNotUsed) {
  volume_.makeFile("Users/alice/x");
  volume_.makeFile("Users/alice/.Trash");
  EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::failed);
  std::filesystem::remove(volume_.path("Users/alice/.Trash"));
  volume_.makeFolder("Users/alice/.Trash");
  volume_.own("Users/alice/.Trash", TestVolume::kBob);
  EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::failed);
  EXPECT_TRUE(volume_.exists("Users/alice/x"));
  EXPECT_THAT(report_.text(), HasSubstr("belongs to somebody else"));
}

TEST_F(TrashToolTest, ConsoleUsersHomeThatIsNotTheirsIsNotUsed) {
  volume_.makeFile("Library/Stuff/x");
  volume_.own("Users/alice", TestVolume::kBob);
  EXPECT_EQ(run({"/Library/Stuff/x"}), ExitStatus::failed);
  EXPECT_TRUE(volume_.exists("Library/Stuff/x"));
  EXPECT_FALSE(volume_.exists("Users/alice/.Trash"));
}

TEST_F(TrashToolTest, WhatIsInThatTrashAlreadyStaysThere) {
  volume_.makeFile("Users/alice/.Trash/folder/x");
  volume_.own("Users/alice/.Trash", TestVolume::kAlice);
  EXPECT_EQ(run({"/Users/alice/.Trash/folder/x"}), ExitStatus::done);
  EXPECT_TRUE(volume_.exists("Users/alice/.Trash/folder/x"));
}

TEST_F(TrashToolTest, AnotherVolumeHasItsOwnTrashForEachUser) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/qmaster/x");
  const auto inode = volume_.status("Volumes/Disk/qmaster/x").st_ino;
  EXPECT_EQ(run({"/Volumes/Disk/qmaster/x"}), ExitStatus::done) << report_.text();
  const std::string own = "Volumes/Disk/.Trashes/" + std::to_string(TestVolume::kAlice);
  EXPECT_EQ(volume_.status(own + "/x").st_ino, inode);
  EXPECT_EQ(volume_.mode(own), 0700U);
  EXPECT_EQ(volume_.status(own).st_uid, TestVolume::kAlice);
  EXPECT_EQ(volume_.mode("Volumes/Disk/.Trashes"), 01333U);
  EXPECT_EQ(volume_.status("Volumes/Disk/.Trashes").st_uid, 0U);
  EXPECT_FALSE(volume_.exists("Users/alice/.Trash"));
}

TEST_F(TrashToolTest, APlantedVolumeTrashIsNotUsedAndTheHomesTrashGetsACopy) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/qmaster/x", "data", 0640);
  const std::string own = "Volumes/Disk/.Trashes/" + std::to_string(TestVolume::kAlice);
  volume_.makeFolder(own);
  volume_.own(own, TestVolume::kBob);
  EXPECT_EQ(run({"/Volumes/Disk/qmaster/x"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names(own), IsEmpty());
  EXPECT_EQ(volume_.read("Users/alice/.Trash/x"), "data");
  EXPECT_EQ(volume_.mode("Users/alice/.Trash/x"), 0640U);
  EXPECT_FALSE(volume_.exists("Volumes/Disk/qmaster/x"));
}

TEST_F(TrashToolTest, ContentsGoIntoTheTrashEachUnderItsOwnNameAndTheFolderStays) {
  volume_.makeFile("Users/alice/Library/Application Support/Compressor/History/a", "a", 0600);
  volume_.makeFile("Users/alice/Library/Application Support/Compressor/History/b/c");
  volume_.makeFile("Users/alice/Library/Application Support/Compressor/History/.hidden");
  EXPECT_EQ(run({"-dircontents", "/Users/alice/Library/Application Support/Compressor/History"}),
            ExitStatus::done);
  EXPECT_THAT(volume_.names("Users/alice/Library/Application Support/Compressor/History"), IsEmpty());
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre(".hidden", "a", "b"));
}

TEST_F(TrashToolTest, AnEntryThatCannotBeMovedDoesNotStopTheOthers) {
  volume_.makeFile("x/a");
  volume_.mountVolume("x/b");
  volume_.makeFile("x/b/inside");
  volume_.makeFile("x/c");
  EXPECT_EQ(run({"-dircontents", "/x"}), ExitStatus::failed);
  EXPECT_THAT(volume_.names("x"), ElementsAre("b"));
  EXPECT_TRUE(volume_.exists("x/b/inside"));
  EXPECT_EQ(report_.lines(), 1);
}

TEST_F(TrashToolTest, AtTheTopOfAVolumeItsOwnFoldersStay) {
  volume_.mountVolume("scratch");
  volume_.makeFolder("scratch/lost+found");
  volume_.makeFile("scratch/a");
  EXPECT_EQ(run({"-dircontents", "/scratch"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("scratch"), ElementsAre(".Trashes", "lost+found"));
  EXPECT_THAT(volume_.names("scratch/.Trashes/" + std::to_string(TestVolume::kAlice)), ElementsAre("a"));
}

TEST_F(TrashToolTest, ContentsOfAFileAreAFailure) {
  volume_.makeFile("x/file");
  EXPECT_EQ(run({"-dircontents", "/x/file"}), ExitStatus::failed);
  EXPECT_EQ(run({"-spooldir", "/x/file"}), ExitStatus::failed);
  EXPECT_TRUE(volume_.exists("x/file"));
}

TEST_F(TrashToolTest, FiftyAtOnceWithTheSameNameLoseNothing) {
  constexpr int kCount = 50;
  std::vector<pid_t> children;
  for (int i = 0; i < kCount; ++i) {
    volume_.makeFile("x/" + std::to_string(i) + "/same.txt", std::to_string(i));
  }
  for (int i = 0; i < kCount; ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(static_cast<int>(run({"/x/" + std::to_string(i) + "/same.txt"})));
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::set<std::string> contents;
  for (const std::string& name : volume_.names("Users/alice/.Trash")) {
    contents.insert(volume_.read("Users/alice/.Trash/" + name));
  }
  EXPECT_EQ(contents.size(), static_cast<std::size_t>(kCount));
}

TEST_F(TrashToolTest, AVolumeThatCannotBeWrittenKeepsWhatItHas) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/qmaster/x");
  volume_.makeReadOnly("Volumes/Disk");
  EXPECT_EQ(run({"/Volumes/Disk/qmaster/x"}), ExitStatus::failed);
  EXPECT_EQ(run({"-dircontents", "/Volumes/Disk/qmaster"}), ExitStatus::failed);
  EXPECT_EQ(report_.text(),
            "tool: /Volumes/Disk/.Trashes: Read-only file system\n"
            "tool: /Volumes/Disk/.Trashes: Read-only file system\n");
  EXPECT_FALSE(volume_.exists("Users/alice/.Trash")) << "a copy of what stays is of no use";
}

TEST_F(TrashToolTest, WhatCannotBeRenamedStaysAndIsReported) {
  volume_.makeFile("Users/alice/x/a");
  volume_.makeFile("Users/alice/x/b");
  support::FailingCall::run(SYS_renameat2, EIO, [this] {
    EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::failed);
    EXPECT_EQ(report_.text(), "tool: /Users/alice/x: Input/output error\n");
    EXPECT_EQ(run({"-dircontents", "/Users/alice/x"}), ExitStatus::failed);
    EXPECT_EQ(report_.lines(), 3) << "each entry on its own";
  });
  EXPECT_THAT(volume_.names("Users/alice/x"), ElementsAre("a", "b"));
}

TEST_F(TrashToolTest, WhereNoTrashCanBeMadeNothingMoves) {
  volume_.makeFile("Users/alice/x");
  support::FailingCall::run(SYS_mkdirat, ENOSPC, [this] {
    EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::failed);
    EXPECT_EQ(report_.text(), "tool: /Users/alice/.Trash: No space left on device\n");
  });
  EXPECT_TRUE(volume_.exists("Users/alice/x"));
}

TEST_F(TrashToolTest, ATrashThatIsThereIsUsedAlsoWhereNoneCouldBeMade) {
  volume_.makeFile("Users/alice/x");
  volume_.makeFolder("Users/alice/.Trash", 0700);
  volume_.own("Users/alice/.Trash", TestVolume::kAlice);
  support::FailingCall::run(SYS_mkdirat, ENOSPC, [this] {
    EXPECT_EQ(run({"/Users/alice/x"}), ExitStatus::done) << report_.text();
  });
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre("x"));
}

TEST_F(TrashToolTest, WithoutATrashOfEitherKindNothingMoves) {
  surroundings_.consoleAccount = [] { return std::optional(Account{"carol", 4203, 4203, "/Users/carol"}); };
  volume_.makeFile(".Trashes");
  volume_.makeFile("Library/Stuff/x");
  EXPECT_EQ(run({"/Library/Stuff/x"}), ExitStatus::failed);
  EXPECT_TRUE(volume_.exists("Library/Stuff/x"));
  EXPECT_THAT(report_.text(), HasSubstr("/Users/carol: No such file or directory"));
}

TEST_F(TrashToolTest, RootsTrashIsWhereAMacHasItWhereNoAccountIsRoots) {
  nobodyAtTheConsole();
  surroundings_.accounts.clear();
  volume_.makeFile("Library/Stuff/x");
  EXPECT_EQ(run({"/Library/Stuff/x"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("var/root/.Trash"), ElementsAre("x"));
}

TEST_F(TrashToolTest, AHomeWithoutAccountIsKnownByItsPlaceAndAPersonAsItsOwner) {
  volume_.makeFile("home/guest/x");
  volume_.own("home/guest", 4299);
  EXPECT_EQ(run({"/home/guest/x"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("home/guest/.Trash"), ElementsAre("x"));
  volume_.makeFile("Users/service/y");
  volume_.own("Users/service", 33);
  EXPECT_EQ(run({"/Users/service/y"}), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), ElementsAre("y"));
}

TEST_F(TrashToolTest, AFolderWithADeviceIsNotMovedToAnotherVolume) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/.Trashes");  // no volume trash possible
  volume_.makeFile("Volumes/Disk/qmaster/a");
  ASSERT_EQ(mknod(volume_.path("Volumes/Disk/qmaster/tape").c_str(), S_IFCHR | 0600, makedev(9, 0)), 0);
  EXPECT_EQ(run({"/Volumes/Disk/qmaster"}), ExitStatus::failed);
  EXPECT_THAT(volume_.names("Volumes/Disk/qmaster"), ElementsAre("a", "tape"));
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), IsEmpty());
  EXPECT_THAT(report_.text(), HasSubstr("/Volumes/Disk/qmaster/tape: "));
}

TEST_F(TrashToolTest, ACopyWhoseOriginalCannotBeRemovedStaysInTheTrashAndIsReported) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/.Trashes");
  volume_.makeFile("Volumes/Disk/qmaster/x", "data");
  support::FailingCall::run(SYS_unlinkat, EIO, [this] {
    EXPECT_EQ(run({"/Volumes/Disk/qmaster/x"}), ExitStatus::failed);
    EXPECT_THAT(report_.text(), HasSubstr("/Volumes/Disk/qmaster/x: "));
  });
  EXPECT_EQ(volume_.read("Volumes/Disk/qmaster/x"), "data");
  EXPECT_EQ(volume_.read("Users/alice/.Trash/x"), "data");
}

TEST_F(TrashToolTest, AnEmptyFolderLeavesNoTrashBehind) {
  volume_.makeFolder("Users/alice/x");
  EXPECT_EQ(run({"-dircontents", "/Users/alice/x"}), ExitStatus::done);
  EXPECT_FALSE(volume_.exists("Users/alice/.Trash"));
}

TEST_F(TrashToolTest, ContentsThatAreInThatTrashAlreadyStayThere) {
  volume_.makeFile("Users/alice/.Trash/folder/x");
  volume_.own("Users/alice/.Trash", TestVolume::kAlice);
  EXPECT_EQ(run({"-dircontents", "/Users/alice/.Trash/folder"}), ExitStatus::done) << report_.text();
  EXPECT_TRUE(volume_.exists("Users/alice/.Trash/folder/x"));
}

TEST_F(TrashToolTest, WithoutAUsableTrashContentsStay) {
  volume_.makeFile("Users/alice/x/a");
  volume_.makeFile("Users/alice/.Trash");
  EXPECT_EQ(run({"-dircontents", "/Users/alice/x"}), ExitStatus::failed);
  EXPECT_THAT(volume_.names("Users/alice/x"), ElementsAre("a"));
  EXPECT_THAT(report_.text(), HasSubstr("/Users/alice/.Trash: not a folder"));
}

TEST_F(TrashToolTest, AskedToStopItMovesNoFurtherEntry) {
  volume_.makeFile("Users/alice/x/a");
  ToolProcess::run([this] {
    const Surroundings surroundings = volume_.surroundings();
    RecordedReport report;
    raise(SIGHUP);
    EXPECT_EQ(TrashTool(surroundings, report).run({"-dircontents", "/Users/alice/x"}), ExitStatus::failed);
    EXPECT_EQ(report.text(), "tool: /Users/alice/x/a: not moved: asked to stop\n");
  });
  EXPECT_TRUE(volume_.exists("Users/alice/x/a"));
  EXPECT_THAT(volume_.names("Users/alice/.Trash"), IsEmpty());
}

}  // namespace
}  // namespace helpers
