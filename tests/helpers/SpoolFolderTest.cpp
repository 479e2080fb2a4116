#include "helpers/SpoolFolder.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <set>
#include <thread>

#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"
#include "tests/support/FailingCall.h"

namespace helpers {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Step = SpoolFolder::Step;

constexpr const char* kSpool = "private/var/spool/qmaster";
constexpr const char* kTrash = "Users/alice/.Trash";

class SpoolFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    surroundings_ = volume_.surroundings();
  }
  ExitStatus empty(const std::string& path = std::string("/") + kSpool) { return spool_.empty(path); }
  std::string dated() { return "qmaster " + surroundings_.now().formattedLocally("%Y-%m-%d %H.%M.%S"); }
  std::vector<std::string> beside() { return volume_.names("private/var/spool"); }

  /// Every file in the spool folder, beside it, and in the trash, by its last name.
  std::set<std::string> allFiles() {
    std::set<std::string> files;
    for (const char* place : {"private/var/spool", kTrash}) {
      if (!volume_.exists(place)) continue;
      for (const auto& entry : std::filesystem::recursive_directory_iterator(volume_.path(place))) {
        if (entry.is_regular_file()) files.insert(entry.path().filename());
      }
    }
    return files;
  }

  TestVolume volume_;
  Surroundings surroundings_;
  RecordedReport report_;
  SpoolFolder spool_{surroundings_, report_};
};

TEST_F(SpoolFolderTest, TheContentsBecomeOneDatedFolderAndTheSpoolFolderStays) {
  volume_.makeFile(std::string(kSpool) + "/job/data", "x", 0600);
  volume_.makeFile(std::string(kSpool) + "/other");
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
  EXPECT_THAT(volume_.names(kTrash), ElementsAre(dated()));
  EXPECT_THAT(volume_.names(kTrash + ("/" + dated())), ElementsAre("job", "other"));
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
}

TEST_F(SpoolFolderTest, OwnerModeAndAttributesOfTheSpoolFolderStayTheSame) {
  volume_.makeFile(std::string(kSpool) + "/x");
  chmod(volume_.path(kSpool).c_str(), 03775);
  ASSERT_EQ(chown(volume_.path(kSpool).c_str(), TestVolume::kBob, 4242), 0);
  chmod(volume_.path(kSpool).c_str(), 03775);
  ASSERT_EQ(setxattr(volume_.path(kSpool).c_str(), "trusted.note", "kept", 4, 0), 0);
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  const auto status = volume_.status(kSpool);
  EXPECT_EQ(status.st_uid, TestVolume::kBob);
  EXPECT_EQ(status.st_gid, 4242U);
  EXPECT_EQ(status.st_mode & 07777U, 03775U);
  char note[8] = {};
  EXPECT_EQ(getxattr(volume_.path(kSpool).c_str(), "trusted.note", note, sizeof note), 4);
}

TEST_F(SpoolFolderTest, AnEmptySpoolFolderLeavesNoFolderInTheTrash) {
  volume_.makeFolder(kSpool);
  const auto inode = volume_.status(kSpool).st_ino;
  EXPECT_EQ(empty(), ExitStatus::done);
  EXPECT_EQ(volume_.status(kSpool).st_ino, inode);
  EXPECT_THAT(volume_.names(kTrash), IsEmpty());
}

TEST_F(SpoolFolderTest, AFolderPutInPlaceOfTheNewOneIsNeitherGivenAwayNorUsed) {
  for (const auto exchange : {SpoolFolder::Exchange::allow, SpoolFolder::Exchange::avoid}) {
    volume_.makeFile(std::string(kSpool) + "/job");
    volume_.own(kSpool, TestVolume::kBob);
    volume_.makeFile("secret/file");
    chmod(volume_.path("secret").c_str(), 0700);
    spool_.setExchange(exchange);
    spool_.onStep([&](Step step) {
      if (step != Step::made) return;
      const std::string made = exchange == SpoolFolder::Exchange::allow
                                   ? "private/var/spool/.qmaster.emptying"
                                   : kTrash + ("/" + dated());
      std::filesystem::remove(volume_.path(made));
      std::filesystem::rename(volume_.path("secret"), volume_.path(made));
    });
    EXPECT_EQ(empty(), ExitStatus::failed);
    EXPECT_THAT(report_.text(), ::testing::HasSubstr("was exchanged"));
    EXPECT_THAT(volume_.names(kSpool), ElementsAre("job"));
    const std::string now = exchange == SpoolFolder::Exchange::allow ? "private/var/spool/.qmaster.emptying"
                                                                     : kTrash + ("/" + dated());
    EXPECT_EQ(volume_.status(now).st_uid, 0U);
    EXPECT_THAT(volume_.names(now), ElementsAre("file"));
    std::filesystem::remove_all(volume_.path(now));
  }
}

TEST_F(SpoolFolderTest, EmptyingTwiceInOneSecondGivesTwoFolders) {
  for (const char* name : {"first", "second"}) {
    volume_.makeFile(std::string(kSpool) + "/" + name);
    EXPECT_EQ(empty(), ExitStatus::done);
  }
  EXPECT_THAT(volume_.names(kTrash), ElementsAre(dated(), dated() + " 2"));
}

TEST_F(SpoolFolderTest, WithoutTheExchangeTheEntriesMoveIntoOneDatedFolder) {
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFile(std::string(kSpool) + "/b/c");
  const auto inode = volume_.status(kSpool).st_ino;
  spool_.setExchange(SpoolFolder::Exchange::avoid);
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.status(kSpool).st_ino, inode);
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
  EXPECT_THAT(volume_.names(kTrash + ("/" + dated())), ElementsAre("a", "b"));
}

TEST_F(SpoolFolderTest, AMountPointIsEmptiedIntoItsOwnVolumesTrash) {
  volume_.mountVolume(kSpool);
  volume_.makeFile(std::string(kSpool) + "/a");
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names(kSpool), ElementsAre(".Trashes"));
  const std::string own = std::string(kSpool) + "/.Trashes/" + std::to_string(TestVolume::kAlice);
  EXPECT_THAT(volume_.names(own + "/" + dated()), ElementsAre("a"));
  EXPECT_EQ(empty(), ExitStatus::done);
  EXPECT_THAT(volume_.names(own), ElementsAre(dated()));
}

TEST_F(SpoolFolderTest, AFolderOnAnotherVolumeGoesIntoThatVolumesTrashAsOne) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/qmaster/a");
  volume_.own("Volumes/Disk/qmaster", TestVolume::kAlice);
  EXPECT_EQ(empty("/Volumes/Disk/qmaster"), ExitStatus::done) << report_.text();
  const std::string own = "Volumes/Disk/.Trashes/" + std::to_string(TestVolume::kAlice);
  EXPECT_THAT(volume_.names(own + "/" + dated()), ElementsAre("a"));
  EXPECT_THAT(volume_.names("Volumes/Disk/qmaster"), IsEmpty());
}

TEST_F(SpoolFolderTest, RootsLinkToASpoolFolderElsewhereIsFollowed) {
  volume_.makeFile("data/qmaster/a");
  volume_.makeFolder("private/var/spool");
  volume_.makeLink("/data/qmaster", kSpool);
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("data/qmaster"), IsEmpty());
  EXPECT_TRUE(S_ISLNK(volume_.status(kSpool).st_mode));
}

TEST_F(SpoolFolderTest, AUsersLinkIsRefused) {
  volume_.makeFile("data/secret/a");
  volume_.makeLink("/data/secret", "Users/bob/spool");
  EXPECT_EQ(empty("/Users/bob/spool"), ExitStatus::refused);
  EXPECT_TRUE(volume_.exists("data/secret/a"));
}

TEST_F(SpoolFolderTest, WithoutAUsableTrashTheContentsStay) {
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFile("Users/alice/.Trash");
  EXPECT_EQ(empty(), ExitStatus::failed);
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
}

TEST_F(SpoolFolderTest, WhenTheTrashFailsAfterTheExchangeAllIsPutBackWithWhatCameMeanwhile) {
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFolder(kTrash, 0700);
  volume_.own(kTrash, TestVolume::kAlice);
  spool_.onStep([this](Step step) {
    if (step != Step::exchanged) return;
    volume_.makeFile(std::string(kSpool) + "/added");
    std::filesystem::remove(volume_.path(kTrash));  // a removed folder takes nothing in
  });
  EXPECT_EQ(empty(), ExitStatus::failed);
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a", "added"));
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
}

TEST_F(SpoolFolderTest, KilledAtAnyStepNothingIsLostAndTheNextRunFinishes) {
  for (const Step step : {Step::located, Step::made, Step::prepared, Step::exchanged, Step::trashed}) {
    std::filesystem::remove_all(volume_.path(kTrash));
    volume_.makeFile(std::string(kSpool) + "/job/data");
    const pid_t child = fork();
    if (child == 0) {
      spool_.onStep([step](Step reached) {
        if (reached == step) raise(SIGKILL);
      });
      _exit(static_cast<int>(empty()));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_TRUE(S_ISDIR(volume_.status(kSpool).st_mode));
    EXPECT_EQ(volume_.mode(kSpool), 0755U);
    EXPECT_THAT(allFiles(), ElementsAre("data"));
    EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
    EXPECT_THAT(volume_.names(kSpool), IsEmpty());
    EXPECT_THAT(beside(), ElementsAre("qmaster"));
    EXPECT_THAT(volume_.names(kTrash), ElementsAre(dated()));
    EXPECT_TRUE(volume_.exists(kTrash + ("/" + dated()) + "/job/data"));
  }
}

TEST_F(SpoolFolderTest, AWriterNeverMissesTheFolderAndLosesNothing) {
  volume_.makeFolder(kSpool);
  std::atomic<bool> enough = false;
  std::atomic<int> written = 0;
  std::atomic<int> failed = 0;
  std::thread writer([&] {
    for (int i = 0; !enough; ++i) {
      const std::string file = volume_.path(kSpool) + "/" + std::to_string(i);
      const int made = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
      ++(made >= 0 ? written : failed);
      if (made >= 0) close(made);
    }
  });
  for (int i = 0; i < 50 || written < 500; ++i) EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  enough = true;
  writer.join();
  EXPECT_EQ(failed, 0);
  EXPECT_GT(written, 0);
  EXPECT_THAT(allFiles(), SizeIs(static_cast<std::size_t>(written.load())));
}

TEST_F(SpoolFolderTest, SeveralAtOnceLoseNothingAndLeaveNothingBehind) {
  constexpr int kFiles = 20;
  for (int i = 0; i < kFiles; ++i) volume_.makeFile(std::string(kSpool) + "/" + std::to_string(i));
  std::vector<pid_t> children;
  for (int i = 0; i < 10; ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(static_cast<int>(empty()));
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << report_.text();
  }
  EXPECT_THAT(allFiles(), SizeIs(kFiles));
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
  EXPECT_THAT(volume_.names(kTrash), SizeIs(1));
}

TEST_F(SpoolFolderTest, AForeignLockOnlyDelaysTheWork) {
  volume_.makeFile(std::string(kSpool) + "/a");
  const platform::UniqueDescriptor foreign(open(volume_.path(kSpool).c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_EQ(flock(foreign.get(), LOCK_EX), 0);
  spool_.setLockPatience(std::chrono::milliseconds(20));
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
}

TEST_F(SpoolFolderTest, AFileUnderOurTemporaryNameIsLeftAloneAndTheEntriesMoveOneByOne) {
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFile("private/var/spool/.qmaster.emptying", "not ours");
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
  EXPECT_EQ(volume_.read("private/var/spool/.qmaster.emptying"), "not ours");
}

TEST_F(SpoolFolderTest, AFolderNameOf255BytesWorks) {
  const std::string name(255, 's');
  volume_.makeFile("var/spool/" + name + "/a");
  EXPECT_EQ(empty("/var/spool/" + name), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names("var/spool"), ElementsAre(name));
  EXPECT_THAT(volume_.names(kTrash), SizeIs(1));
}

TEST_F(SpoolFolderTest, AcrossVolumesTheFolderIsCopiedWhole) {
  volume_.mountVolume("Volumes/Disk");
  volume_.makeFile("Volumes/Disk/qmaster/job/data", "content");
  volume_.own("Volumes/Disk/qmaster", TestVolume::kAlice);
  volume_.makeFile("Volumes/Disk/.Trashes");  // no volume trash possible
  EXPECT_EQ(empty("/Volumes/Disk/qmaster"), ExitStatus::done) << report_.text();
  EXPECT_EQ(volume_.read(kTrash + ("/" + dated()) + "/job/data"), "content");
  EXPECT_THAT(volume_.names("Volumes/Disk"), ElementsAre(".Trashes", "qmaster"));
  EXPECT_THAT(volume_.names("Volumes/Disk/qmaster"), IsEmpty());
}

TEST_F(SpoolFolderTest, WhatAKilledRunLeftIsTakenAlongWithoutWaitingForItsLockForEver) {
  volume_.makeFile("private/var/spool/.qmaster.emptying/left");
  volume_.makeFile(std::string(kSpool) + "/a");
  const platform::UniqueDescriptor foreign(
      open(volume_.path("private/var/spool/.qmaster.emptying").c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_EQ(flock(foreign.get(), LOCK_EX), 0);
  spool_.setLockPatience(std::chrono::milliseconds(20));
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
  EXPECT_THAT(volume_.names(kTrash + ("/" + dated())), ElementsAre("a"));
  EXPECT_TRUE(volume_.exists("private/var/spool/.qmaster.emptying/left")) << "whoever has it goes on";
}

TEST_F(SpoolFolderTest, WithoutAUsableTrashWhatAKilledRunLeftStaysToo) {
  volume_.makeFile("private/var/spool/.qmaster.emptying/left");
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFile("Users/alice/.Trash");
  EXPECT_EQ(empty(), ExitStatus::failed);
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
  EXPECT_TRUE(volume_.exists("private/var/spool/.qmaster.emptying/left"));
}

TEST_F(SpoolFolderTest, WhereNothingCanBeRenamedAllStaysAndEachEntryIsReported) {
  volume_.makeFile("private/var/spool/.qmaster.emptying/left");
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFile(std::string(kSpool) + "/b");
  support::FailingCall::run(SYS_renameat2, EIO, [this] {
    EXPECT_EQ(empty(), ExitStatus::failed);
    EXPECT_EQ(report_.lines(), 3) << report_.text();
  });
  EXPECT_EQ(allFiles(), (std::set<std::string>{"a", "b", "left"}));
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a", "b"));
  EXPECT_THAT(volume_.names(kTrash), IsEmpty()) << "nor is a dated folder left behind";
}

TEST_F(SpoolFolderTest, AnExchangeThatFailsLeavesNothingBesideTheFolder) {
  volume_.makeFile(std::string(kSpool) + "/a");
  support::FailingCall::run(SYS_renameat2, EIO, [this] { EXPECT_EQ(empty(), ExitStatus::failed); });
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
}

TEST_F(SpoolFolderTest, WhereNoFolderCanBeMadeAllStays) {
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFolder(kTrash, 0700);
  volume_.own(kTrash, TestVolume::kAlice);
  support::FailingCall::run(SYS_mkdirat, ENOSPC, [this] {
    EXPECT_EQ(empty(), ExitStatus::failed);
    EXPECT_THAT(report_.text(), ::testing::HasSubstr("No space left on device"));
  });
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
  EXPECT_THAT(volume_.names(kTrash), IsEmpty());
}

TEST_F(SpoolFolderTest, AFolderThatCannotBeMadeLikeTheSpoolFolderIsNotPutInItsPlace) {
  volume_.makeFile(std::string(kSpool) + "/a");
  ASSERT_EQ(setxattr(volume_.path(kSpool).c_str(), "trusted.note", "kept", 4, 0), 0);
  const auto inode = volume_.status(kSpool).st_ino;
  support::FailingCall::run(SYS_fsetxattr, ENOSPC,
                            [this] { EXPECT_EQ(empty(), ExitStatus::done) << report_.text(); });
  EXPECT_EQ(volume_.status(kSpool).st_ino, inode);
  EXPECT_THAT(volume_.names(kTrash + ("/" + dated())), ElementsAre("a"));
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
}

TEST_F(SpoolFolderTest, ADatedFolderThatCannotBeGivenAwayTakesNothingIn) {
  spool_.setExchange(SpoolFolder::Exchange::avoid);
  volume_.makeFile(std::string(kSpool) + "/a");
  for (const long call : {SYS_fchown, SYS_fchmod}) {
    support::FailingCall::run(call, EIO, [this] {
      EXPECT_EQ(empty(), ExitStatus::failed);
      EXPECT_THAT(report_.text(), ::testing::HasSubstr(dated()));
    });
    EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
  }
}

TEST_F(SpoolFolderTest, AFolderThatCannotBeListedStaysAsItIs) {
  volume_.makeFile(std::string(kSpool) + "/a");
  spool_.setExchange(SpoolFolder::Exchange::avoid);
  support::FailingCall::run(SYS_getdents64, EIO, [this] {
    EXPECT_EQ(empty(), ExitStatus::failed);
    EXPECT_EQ(report_.text(), std::string("tool: /") + kSpool + ": Input/output error\n");
  });
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
}

TEST_F(SpoolFolderTest, ANewFolderThatAnotherRunTakesForALeftOneIsWaitedFor) {
  volume_.makeFile(std::string(kSpool) + "/a");
  platform::UniqueDescriptor another;
  int made = 0;
  spool_.onStep([&](Step step) {
    if (step == Step::made && ++made == 1) {
      another.reset(
          open(volume_.path("private/var/spool/.qmaster.emptying").c_str(), O_RDONLY | O_DIRECTORY));
      ASSERT_EQ(flock(another.get(), LOCK_EX), 0);
    } else if (step == Step::located) {
      another.reset();
    }
  });
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_EQ(made, 2);
  EXPECT_THAT(volume_.names(kSpool), IsEmpty());
  EXPECT_THAT(volume_.names(kTrash), ElementsAre(dated()));
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
}

TEST_F(SpoolFolderTest, AFolderThatAnotherRunHasEmptiedMeanwhileLeavesNoneInTheTrash) {
  volume_.makeFile(std::string(kSpool) + "/a");
  spool_.onStep([this](Step step) {
    if (step == Step::exchanged) unlink(volume_.path("private/var/spool/.qmaster.emptying/a").c_str());
  });
  EXPECT_EQ(empty(), ExitStatus::done) << report_.text();
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
  EXPECT_THAT(volume_.names(kTrash), IsEmpty());
}

TEST_F(SpoolFolderTest, WhatCannotGoBackForANameThatIsTakenIsReportedAndKept) {
  volume_.makeFile(std::string(kSpool) + "/a", "first");
  volume_.makeFolder(kTrash, 0700);
  volume_.own(kTrash, TestVolume::kAlice);
  spool_.onStep([this](Step step) {
    if (step != Step::exchanged) return;
    volume_.makeFile(std::string(kSpool) + "/a", "second");
    std::filesystem::remove(volume_.path(kTrash));  // a removed folder takes nothing in
  });
  EXPECT_EQ(empty(), ExitStatus::failed);
  EXPECT_THAT(report_.text(), ::testing::HasSubstr(std::string("/") + kSpool + "/a: File exists"));
  EXPECT_EQ(volume_.read(std::string(kSpool) + "/a"), "first");
  EXPECT_EQ(volume_.read("private/var/spool/.qmaster.emptying/a"), "second");
}

TEST_F(SpoolFolderTest, WhenTheTrashFailsAndNothingHasComeMeanwhileNothingIsLeftBeside) {
  volume_.makeFile(std::string(kSpool) + "/a");
  volume_.makeFolder(kTrash, 0700);
  volume_.own(kTrash, TestVolume::kAlice);
  spool_.onStep([this](Step step) {
    if (step == Step::exchanged) std::filesystem::remove(volume_.path(kTrash));
  });
  EXPECT_EQ(empty(), ExitStatus::failed);
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a"));
  EXPECT_THAT(beside(), ElementsAre("qmaster"));
}

TEST_F(SpoolFolderTest, AskedToStopItBeginsNothingAndEndsBetweenTwoEntries) {
  for (const char* name : {"/a", "/b"}) volume_.makeFile(std::string(kSpool) + name);
  ToolProcess::run([this] {
    const Surroundings surroundings = volume_.surroundings();
    RecordedReport report;
    SpoolFolder spool(surroundings, report);
    spool.setExchange(SpoolFolder::Exchange::avoid);
    spool.onStep([](Step step) {
      if (step == Step::made) raise(SIGTERM);
    });
    const std::string path = std::string("/") + kSpool;
    EXPECT_EQ(spool.empty(path), ExitStatus::failed);
    EXPECT_EQ(report.text(), "tool: " + path + ": not finished: asked to stop\n");
    EXPECT_EQ(spool.empty(path), ExitStatus::failed);
    EXPECT_THAT(report.text(), ::testing::EndsWith("tool: " + path + ": not emptied: asked to stop\n"));
  });
  EXPECT_THAT(volume_.names(kSpool), ElementsAre("a", "b"));
  EXPECT_THAT(volume_.names(kTrash), IsEmpty()) << "nor is the dated folder left behind";
}

}  // namespace
}  // namespace helpers
