#include "platform/posix/GuardedGathering.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/posix/FileRights.h"
#include "platform/posix/PosixFiles.h"
#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/AsUser.h"
#include "tests/support/PathStatus.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::kNobody;
using support::modeAt;
using support::statusAt;
using support::TemporaryFolder;
using ::testing::ElementsAre;

template <typename T>
int reasonOf(const foundation::Result<T>& result) {
  return result ? 0 : result.error().code;
}

class GuardedGatheringTest : public ::testing::Test {
 protected:
  [[nodiscard]] int copy(const std::string& from, AtLink atLink = AtLink::copyDestination,
                         const Reader& reader = std::nullopt) {
    return reasonOf(gathering.copy(reader, from, folder / "copy", atLink));
  }
  [[nodiscard]] bool isCopied() const { return fs::exists(fs::symlink_status(folder / "copy")); }

  TemporaryFolder folder;
  PosixFileQueries queries;
  GuardedGathering gathering{queries};
};

TEST_F(GuardedGatheringTest, APrivateFolderIsForItsAccountAloneWhateverTheMask) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    const mode_t before = ::umask(mask);
    const std::string path = folder / ("a/b/" + std::to_string(mask));
    EXPECT_TRUE(gathering.createPrivateFolder(path));
    ::umask(before);
    EXPECT_EQ(modeAt(path), 0700U);
  }
}

TEST_F(GuardedGatheringTest, AFolderThatIsInUseIsTakenByNobodyElse) {
  const std::string path = folder / "staging";
  {
    const auto created = gathering.createPrivateFolder(path);
    ASSERT_TRUE(created);
    EXPECT_EQ(reasonOf(gathering.useLeftFolder(path)), EBUSY);
    GuardedGathering another(queries);
    EXPECT_EQ(reasonOf(another.useLeftFolder(path)), EBUSY);
  }
  const auto left = gathering.useLeftFolder(path);
  ASSERT_TRUE(left) << "whoever used it has gone";
  EXPECT_NE(left.value(), nullptr);
  EXPECT_EQ(reasonOf(gathering.useLeftFolder(path)), EBUSY) << "taken again";
}

TEST_F(GuardedGatheringTest, WhatIsNoFolderOrNotThereIsNotInUse) {
  folder.file("file");
  static_cast<void>(folder.folder("folder"));
  fs::create_symlink("folder", folder / "link");
  for (const char* name : {"file", "link", "missing", "missing/below"}) {
    const auto left = gathering.useLeftFolder(folder / name);
    ASSERT_TRUE(left) << name;
    EXPECT_EQ(left.value(), nullptr) << name;
  }
}

TEST_F(GuardedGatheringTest, NothingThatIsThereBecomesAPrivateFolder) {
  static_cast<void>(folder.folder("folder"));
  folder.file("file");
  fs::create_symlink("folder", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  for (const char* name : {"folder", "file", "link", "dangling"}) {
    EXPECT_EQ(reasonOf(gathering.createPrivateFolder(folder / name)), EEXIST) << name;
  }
  EXPECT_FALSE(fs::exists(folder / "nowhere"));
}

TEST_F(GuardedGatheringTest, APrivateFolderBelowAFileCannotBeMade) {
  folder.file("file");
  EXPECT_EQ(reasonOf(gathering.createPrivateFolder(folder / "file/a")), ENOTDIR);
}

TEST_F(GuardedGatheringTest, AFileIsCopiedWithModeAndTimes) {
  const std::string path = folder.file("log", "content");
  ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
  const std::array<timespec, 2> times = {timespec{1000, 5}, timespec{2000, 7}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
  EXPECT_EQ(copy(path), 0);
  EXPECT_EQ(folder.content("copy"), "content");
  const struct stat status = statusAt(folder / "copy");
  EXPECT_EQ(status.st_mode & 07777U, 0444U);
  EXPECT_EQ(status.st_mtim.tv_sec, 2000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 7);
}

TEST_F(GuardedGatheringTest, ACopyCanBeReadByItsOwnerAndCarriesNoRights) {
  const std::string path = folder.file("log", "content");
  ASSERT_EQ(::chmod(path.c_str(), 06040), 0);
  if (::geteuid() != 0) GTEST_SKIP() << "needs root: the file is not readable";
  EXPECT_EQ(copy(path), 0);
  EXPECT_EQ(modeAt(folder / "copy"), 0440U);
}

TEST_F(GuardedGatheringTest, LargeFilesAreCopiedWhole) {
  std::string content(1000003, 'x');
  for (std::size_t at = 0; at < content.size(); ++at) content[at] = static_cast<char>(at * 31 % 251);
  EXPECT_EQ(copy(folder.file("log", content)), 0);
  EXPECT_EQ(folder.content("copy"), content);
}

TEST_F(GuardedGatheringTest, HolesStayHoles) {
  const std::string path = folder.file("log", "begin");
  constexpr off_t kSize = 1L << 40;
  ASSERT_EQ(::truncate(path.c_str(), kSize), 0);
  EXPECT_EQ(copy(path), 0);
  const struct stat status = statusAt(folder / "copy");
  EXPECT_EQ(status.st_size, kSize);
  EXPECT_LT(status.st_blocks, 2048);
}

TEST_F(GuardedGatheringTest, AFileThatIsCutMeanwhileEndsThere) {
  constexpr std::size_t kSize = 32 << 20;
  constexpr std::size_t kStep = 64 << 10;
  for (int round = 0; round < 10; ++round) {
    const std::string path = folder.file("log", round % 2 == 0 ? std::string(kSize, 'x') : "");
    std::ofstream log(path, std::ios::binary | std::ios::in);
    for (std::size_t at = 0; at < kSize; at += kStep) {  // without a content so far, these are between holes
      log.seekp(static_cast<std::streamoff>(at + kStep - 1)) << 'x' << std::flush;
    }
    std::thread rotation([&] {
      std::error_code notYet;
      while (fs::file_size(folder / "copy", notYet) == 0 || notYet) std::this_thread::yield();
      fs::resize_file(path, 0);
    });
    EXPECT_EQ(copy(path), 0);
    rotation.join();
    std::ifstream copied(folder / "copy", std::ios::binary);
    EXPECT_EQ(copied.seekg(-1, std::ios::end).get(), 'x') << "no zeros in the place of what is gone";
    fs::remove(folder / "copy");
  }
}

// The kernel says 4096 bytes of each of these files.
TEST_F(GuardedGatheringTest, AFileThatEndsBeforeItsSizeIsCopiedUpToItsEnd) {
  const std::string path = "/sys/devices/system/cpu/online";
  if (!fs::exists(path)) GTEST_SKIP() << "needs " << path;
  const std::string content = queries.readFile(path, 4096).value();
  ASSERT_LT(content.size(), fs::file_size(path));
  EXPECT_EQ(copy(path), 0);
  ASSERT_EQ(fs::file_size(folder / "copy"), content.size());
  EXPECT_EQ(folder.content("copy"), content);
}

TEST_F(GuardedGatheringTest, WhatIsThereIsNotReplaced) {
  const std::string path = folder.file("log", "new");
  folder.file("copy", "old");
  EXPECT_EQ(copy(path), EEXIST);
  EXPECT_EQ(folder.content("copy"), "old");
  fs::remove(folder / "copy");
  fs::create_symlink(folder / "elsewhere", folder / "copy");
  EXPECT_EQ(copy(path), EEXIST);
  EXPECT_FALSE(fs::exists(folder / "elsewhere"));
}

TEST_F(GuardedGatheringTest, MissingItemsAndCutPathsAreErrors) {
  EXPECT_EQ(copy(folder / "missing"), ENOENT);
  EXPECT_EQ(copy(""), ENOENT);
  const std::string path = folder.file("log");
  EXPECT_EQ(copy(path + std::string("\0x", 2)), EINVAL);
  EXPECT_FALSE(gathering.exists(std::nullopt, path + std::string("\0x", 2)));
  EXPECT_FALSE(isCopied());
}

TEST_F(GuardedGatheringTest, ALinkIsCopiedAsItsDestination) {
  folder.file("logs/real", "real");
  fs::create_symlink("real", folder / "logs/second");
  for (const std::string& target : {folder / "logs/real", std::string("logs/real"),
                                    std::string("./logs//../logs/real"), std::string("logs/second")}) {
    fs::create_symlink(target, folder / "link");
    EXPECT_EQ(copy(folder / "link"), 0) << target;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "copy"))) << target;
    EXPECT_EQ(folder.content("copy"), "real");
    fs::remove(folder / "copy");
    fs::remove(folder / "link");
  }
}

TEST_F(GuardedGatheringTest, ATildeAtTheBeginningOfADestinationIsAHome) {
  fakes::FakePlatform fake;
  fake.users.home = folder / "home";
  folder.file("home/real", "real");
  fs::create_symlink("~/real", folder / "link");
  EXPECT_EQ(copy(folder / "link"), 0);
  EXPECT_EQ(folder.content("copy"), "real");
}

TEST_F(GuardedGatheringTest, ALinkIsCopiedAsALinkWhenAskedFor) {
  fs::create_symlink(folder.file("real", "real"), folder / "link");
  EXPECT_EQ(copy(folder / "link", AtLink::copyLink), 0);
  EXPECT_EQ(fs::read_symlink(folder / "copy"), folder / "real");
}

TEST_F(GuardedGatheringTest, ALinkToAnythingButAFileIsCopiedAsALink) {
  fs::create_symlink("loop", folder / "loop");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  static_cast<void>(folder.folder("folder"));
  for (const std::string target : {"loop", "fifo", "folder", "missing", "/dev/zero", "/"}) {
    fs::create_symlink(target, folder / "link");
    EXPECT_EQ(copy(folder / "link"), 0) << target;
    EXPECT_EQ(fs::read_symlink(folder / "copy"), target);
    fs::remove(folder / "copy");
    fs::remove(folder / "link");
  }
}

TEST_F(GuardedGatheringTest, FIFOsAndDevicesAreRefusedWithoutWaiting) {
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(copy(folder / "fifo"), ENOTSUP);
  EXPECT_EQ(copy("/dev/zero"), ENOTSUP);
  EXPECT_FALSE(isCopied());
}

TEST_F(GuardedGatheringTest, AFolderIsCopiedWhole) {
  folder.file("old.log/a/file", "content");
  fs::create_symlink("/nowhere", folder / "old.log/a/link");
  fs::create_symlink(folder.file("real"), folder / "old.log/alive");
  static_cast<void>(folder.folder("old.log/empty"));
  const std::array<timespec, 2> times = {timespec{1000, 0}, timespec{2000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "old.log").c_str(), times.data(), 0), 0);
  ASSERT_EQ(::chmod((folder / "old.log/a").c_str(), 0555), 0);
  EXPECT_EQ(copy(folder / "old.log"), 0);
  EXPECT_EQ(folder.content("copy/a/file"), "content");
  EXPECT_EQ(fs::read_symlink(folder / "copy/a/link"), "/nowhere");
  EXPECT_TRUE(fs::is_symlink(folder / "copy/alive"));
  EXPECT_TRUE(fs::is_directory(folder / "copy/empty"));
  EXPECT_EQ(statusAt(folder / "copy").st_mtim.tv_sec, 2000);
  EXPECT_EQ(modeAt(folder / "copy/a"), 0755U) << "its owner can empty it";
}

TEST_F(GuardedGatheringTest, AFolderWithWhatCannotBeCopiedIsAnError) {
  static_cast<void>(folder.folder("old.log"));
  ASSERT_EQ(::mkfifo((folder / "old.log/fifo").c_str(), 0600), 0);
  const auto copied = gathering.copy({}, folder / "old.log", folder / "copy", AtLink::copyLink);
  EXPECT_EQ(reasonOf(copied), ENOTSUP);
  EXPECT_THAT(copied.error().localizedDescription(), testing::HasSubstr(folder / "old.log/fifo"));
}

TEST_F(GuardedGatheringTest, ACopyThatBreaksOffLeavesNothing) {
  const std::string path = folder.file("log", std::string(100000, 'x'));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{50000, before.rlim_max};
  const auto handler = ::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const int reason = copy(path);
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, handler);
  EXPECT_EQ(reason, EFBIG);
  EXPECT_FALSE(isCopied());
}

TEST_F(GuardedGatheringTest, ListsAndLooksAsTheQueriesDo) {
  folder.file("logs/b");
  folder.file("logs/a");
  fs::create_symlink("nowhere", folder / "logs/c");
  EXPECT_THAT(gathering.contentsOfDirectory({}, folder / "logs").value(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(reasonOf(gathering.contentsOfDirectory({}, folder / "missing")), ENOENT);
  EXPECT_TRUE(gathering.exists({}, folder / "logs/a"));
  EXPECT_FALSE(gathering.exists({}, folder / "logs/c"));
}

// As root.

/// Root, and files that "nobody" has laid out: the name of a real account without any rights.
class RootGatheringTest : public GuardedGatheringTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: gathers for other accounts";
    folder.makeAccessibleToAll();
    ASSERT_EQ(::chmod(folder.file("secret/key", "secret").c_str(), 0600), 0);
    ASSERT_EQ(::chown(folder.folder("logs").c_str(), kNobody, kNobody), 0);
  }

  /// A file of somebody's.
  std::string file(const std::string& path, uid_t owner, mode_t mode,
                   const std::string& content = "content") {
    std::string made = folder.file(path, content);
    EXPECT_EQ(::chown(made.c_str(), owner, owner), 0);
    EXPECT_EQ(::chmod(made.c_str(), mode), 0);
    return made;
  }

  void link(const std::string& target, const std::string& path, uid_t owner = kNobody) {
    fs::create_symlink(target, folder / path);
    EXPECT_EQ(::lchown((folder / path).c_str(), owner, owner), 0);
  }

  const Reader nobody = "nobody";
};

TEST_F(RootGatheringTest, NoPrivateFolderIsMadeWhereOthersCouldExchangeIt) {
  const std::string open = folder.folder("open");
  ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
  EXPECT_EQ(reasonOf(gathering.createPrivateFolder(open + "/staging")), EPERM);
  EXPECT_EQ(reasonOf(gathering.createPrivateFolder(open + "/between/staging")), EPERM);
  EXPECT_EQ(reasonOf(gathering.createPrivateFolder(folder / "logs/staging")), EPERM) << "somebody else's";
  link("open", "way");
  EXPECT_EQ(reasonOf(gathering.createPrivateFolder(folder / "way/staging")), ELOOP);
  EXPECT_FALSE(fs::exists(open + "/staging"));
  ASSERT_EQ(::chmod(open.c_str(), 01777), 0);
  EXPECT_TRUE(gathering.createPrivateFolder(open + "/staging")) << "as in every temporary folder";
  EXPECT_EQ(modeAt(open + "/staging"), 0700U);
}

TEST_F(RootGatheringTest, AFolderOfSomebodyElsesIsNotInUseHoweverLongTheyLockIt) {
  ASSERT_EQ(::chown(folder.folder("staging").c_str(), kNobody, kNobody), 0);
  const UniqueDescriptor theirs(::open((folder / "staging").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(theirs.get(), LOCK_EX), 0);
  EXPECT_EQ(reasonOf(gathering.useLeftFolder(folder / "staging")), 0);
}

TEST_F(RootGatheringTest, WhatTheReaderMayReadIsCopied) {
  EXPECT_EQ(copy(file("logs/own", kNobody, 0600), AtLink::copyDestination, nobody), 0);
  EXPECT_EQ(folder.content("copy"), "content");
  EXPECT_EQ(statusAt(folder / "copy").st_uid, 0U) << "the copy is the process's";
}

TEST_F(RootGatheringTest, WhatTheReaderMayNotReadIsNot) {
  EXPECT_EQ(copy(file("logs/roots", 0, 0600), AtLink::copyDestination, nobody), EACCES);
  EXPECT_EQ(copy(folder / "secret/key", AtLink::copyDestination, nobody), EACCES);
  EXPECT_FALSE(isCopied());
}

TEST_F(RootGatheringTest, ALinkOpensNoMoreThanItsReaderCould) {
  link(folder / "secret/key", "logs/link");
  EXPECT_EQ(copy(folder / "logs/link", AtLink::copyDestination, nobody), EACCES) << "it can be seen";
  ASSERT_EQ(::chmod((folder / "secret").c_str(), 0700), 0);
  EXPECT_EQ(copy(folder / "logs/link", AtLink::copyDestination, nobody), 0) << "it cannot even be seen";
  EXPECT_EQ(fs::read_symlink(folder / "copy"), folder / "secret/key");
}

TEST_F(RootGatheringTest, AFurtherNameOfAFileOpensNoMoreThanItsReaderCould) {
  fs::create_hard_link(folder / "secret/key", folder / "logs/log");
  EXPECT_EQ(copy(folder / "logs/log", AtLink::copyDestination, nobody), EACCES);
  EXPECT_FALSE(isCopied());
}

TEST_F(RootGatheringTest, AnotherUsersFilesStayTheirs) {
  constexpr uid_t kBin = 2;
  static_cast<void>(file("home/open", kBin, 0644, "for everybody"));
  static_cast<void>(file("home/closed", kBin, 0600));
  static_cast<void>(file("home/inside/open", kBin, 0644));
  ASSERT_EQ(::chmod((folder / "home/inside").c_str(), 0700), 0);
  ASSERT_EQ(::chown((folder / "home/inside").c_str(), kBin, kBin), 0);
  link("../home/closed", "logs/closed");
  EXPECT_EQ(copy(folder / "logs/closed", AtLink::copyDestination, nobody), EACCES);
  EXPECT_EQ(copy(folder / "home/inside/open", AtLink::copyDestination, nobody), EACCES);
  EXPECT_FALSE(isCopied());
  link("../home/open", "logs/open");
  EXPECT_EQ(copy(folder / "logs/open", AtLink::copyDestination, nobody), 0);
  EXPECT_EQ(folder.content("copy"), "for everybody");
}

TEST_F(RootGatheringTest, AFullVolumeKeepsNoHalfCopy) {
  const support::SmallVolume volume("64k");
  ASSERT_TRUE(volume.isMounted());
  const std::string path = file("logs/log", kNobody, 0600, std::string(200000, 'x'));
  EXPECT_EQ(reasonOf(gathering.copy(nobody, path, volume / "copy", AtLink::copyLink)), ENOSPC);
  EXPECT_TRUE(fs::is_empty(volume.path()));
}

TEST_F(RootGatheringTest, AFolderThatTheReaderCannotListStaysClosed) {
  ASSERT_EQ(::chmod((folder / "secret").c_str(), 0700), 0);
  EXPECT_EQ(reasonOf(gathering.contentsOfDirectory(nobody, folder / "secret")), EACCES);
  EXPECT_FALSE(gathering.exists(nobody, folder / "secret/key"));
  EXPECT_TRUE(gathering.exists(std::nullopt, folder / "secret/key"));
  link(folder / "secret", "logs/Vordenworks");
  EXPECT_EQ(reasonOf(gathering.contentsOfDirectory(nobody, folder / "logs/Vordenworks")), EACCES);
}

TEST_F(RootGatheringTest, FoldersAreWalkedWithTheReadersRights) {
  static_cast<void>(folder.folder("logs/old.log"));
  static_cast<void>(file("logs/old.log/roots", 0, 0600));
  EXPECT_EQ(copy(folder / "logs/old.log", AtLink::copyDestination, nobody), EACCES);
  EXPECT_FALSE(fs::exists(folder / "copy/roots"));
}

TEST_F(RootGatheringTest, TheReadersGroupsCount) {
  const group* const games = ::getgrnam("games");
  const auto rights = fileRightsOf(std::string("games"));
  ASSERT_TRUE(games != nullptr && rights);
  const std::string path = file("logs/log", 0, 0640);
  ASSERT_EQ(::chown(path.c_str(), 0, games->gr_gid), 0);
  EXPECT_EQ(copy(path, AtLink::copyDestination, nobody), EACCES);
  EXPECT_EQ(copy(path, AtLink::copyDestination, "games"), 0);
}

TEST_F(RootGatheringTest, NothingIsReadForSomebodyUnknown) {
  const std::string path = file("logs/log", 0, 0644);
  EXPECT_EQ(copy(path, AtLink::copyDestination, "no-such-account"), EACCES);
  EXPECT_FALSE(gathering.exists("no-such-account", path));
  EXPECT_EQ(reasonOf(gathering.contentsOfDirectory("no-such-account", folder / "logs")), EACCES);
}

TEST_F(RootGatheringTest, RootAsReaderReadsAsRoot) {
  EXPECT_EQ(copy(folder / "secret/key", AtLink::copyDestination, "root"), 0);
}

TEST_F(RootGatheringTest, WithoutAReaderAnItemIsReadAsItsOwnerCould) {
  link(folder / "secret/key", "logs/planted");
  EXPECT_EQ(copy(folder / "logs/planted"), EACCES);
  EXPECT_FALSE(isCopied());
  link(folder / "secret/key", "logs/roots", 0);
  EXPECT_EQ(copy(folder / "logs/roots"), 0);
  EXPECT_EQ(folder.content("copy"), "secret");
}

TEST_F(RootGatheringTest, WithoutAReaderWhatHasFurtherNamesIsReadAsEverybodyCould) {
  fs::create_hard_link(folder / "secret/key", folder / "logs/planted");
  EXPECT_EQ(copy(folder / "logs/planted"), EACCES);
  fs::create_symlink("key", folder / "secret/link");
  fs::create_hard_link(folder / "secret/link", folder / "logs/link");
  fs::create_hard_link(folder / "secret/key", folder / "logs/key");
  EXPECT_EQ(copy(folder / "logs/link"), EACCES) << "root's link, somewhere else";
  EXPECT_FALSE(isCopied());
  fs::create_hard_link(file("secret/open", 0, 0644, "open"), folder / "logs/open");
  EXPECT_EQ(copy(folder / "logs/open"), 0);
  EXPECT_EQ(folder.content("copy"), "open");
}

TEST_F(RootGatheringTest, ReadingLeavesTheThreadItsRightsAndGroups) {
  const std::array<gid_t, 2> groups = {7, 9};
  std::vector<gid_t> before(static_cast<std::size_t>(::getgroups(0, nullptr)));
  ASSERT_GE(::getgroups(static_cast<int>(before.size()), before.data()), 0);
  ASSERT_EQ(::setgroups(groups.size(), groups.data()), 0);
  EXPECT_EQ(copy(folder / "secret/key", AtLink::copyDestination, nobody), EACCES);
  std::array<gid_t, 8> now{};
  const int count = ::getgroups(now.size(), now.data());
  ASSERT_EQ(::setgroups(before.size(), before.data()), 0);
  ASSERT_EQ(count, 2);
  EXPECT_EQ(now[0], 7U);
  EXPECT_EQ(now[1], 9U);
  EXPECT_TRUE(queries.readFile(folder / "secret/key", 100));
  EXPECT_EQ(::mkdir((folder / "secret/made").c_str(), 0700), 0);
}

TEST_F(RootGatheringTest, OtherThreadsKeepTheirRightsMeanwhile) {
  std::atomic<bool> ended = false;
  std::atomic<int> refused = 0;
  std::thread other([&] {
    while (!ended) refused += queries.readFile(folder / "secret/key", 100) ? 0 : 1;
  });
  for (int round = 0; round < 300; ++round) {
    const FileRightsScope scope(fileRightsOf(kNobody));
    EXPECT_TRUE(scope.isInForce());
    EXPECT_FALSE(queries.readFile(folder / "secret/key", 100));
  }
  ended = true;
  other.join();
  EXPECT_EQ(refused, 0);
}

/// What is exchanged while it is copied is either what the reader may read, or nothing.
TEST_F(RootGatheringTest, AnItemThatIsExchangedMeanwhileOpensNothing) {
  static_cast<void>(file("logs/harmless", kNobody, 0644, "harmless"));
  std::atomic<bool> ended = false;
  std::thread exchange([&] {
    const std::string target = folder / "secret/key";
    const std::string name = folder / "logs/log";
    const std::string spare = folder / "logs/spare";
    while (!ended) {
      static_cast<void>(::symlink(target.c_str(), spare.c_str()));
      static_cast<void>(::rename(spare.c_str(), name.c_str()));
      static_cast<void>(::link((folder / "logs/harmless").c_str(), spare.c_str()));
      static_cast<void>(::rename(spare.c_str(), name.c_str()));
    }
  });
  int copies = 0;
  for (int round = 0; round < 2000; ++round) {
    if (copy(folder / "logs/log", AtLink::copyDestination, nobody) != 0) continue;
    ++copies;
    EXPECT_EQ(folder.content("copy"), "harmless");
    fs::remove(folder / "copy");
  }
  ended = true;
  exchange.join();
  EXPECT_GT(copies, 0);
}

/// The same for the folder that it lies in: the way is gone with the reader's rights each time.
TEST_F(RootGatheringTest, AFolderThatIsExchangedMeanwhileOpensNothing) {
  static_cast<void>(file("logs/real/log", kNobody, 0644, "harmless"));
  static_cast<void>(file("closed/log", 0, 0600, "secret"));
  const std::string way = folder / "logs/way";
  std::atomic<bool> ended = false;
  std::thread exchange([&] {
    const std::string spare = folder / "logs/spare";
    while (!ended) {
      for (const std::string& target : {folder / "closed", folder / "logs/real"}) {
        static_cast<void>(::symlink(target.c_str(), spare.c_str()));
        static_cast<void>(::rename(spare.c_str(), way.c_str()));
      }
    }
  });
  int copies = 0;
  int refusals = 0;
  for (int round = 0; round < 2000 || (round < 100000 && (copies == 0 || refusals == 0)); ++round) {
    const int reason = copy(way + "/log", AtLink::copyDestination, nobody);
    if (reason == EACCES) ++refusals;
    if (reason != 0) continue;
    ++copies;
    EXPECT_EQ(folder.content("copy"), "harmless");
    fs::remove(folder / "copy");
  }
  ended = true;
  exchange.join();
  EXPECT_GT(copies, 0);
  EXPECT_GT(refusals, 0);
}

TEST_F(RootGatheringTest, WithoutTheRightToChangeRightsNothingIsRead) {
  const std::string path = file("logs/log", kNobody, 0644);
  AsUser::run(kNobody, [&] {
    const FileRightsScope scope(FileRights{1, 1, {}});
    EXPECT_FALSE(scope.isInForce());
  });
  AsUser::run(kNobody, [&] {
    EXPECT_TRUE(gathering.exists("no-such-account", path)) << "a user has their own rights for any reader";
  });
}

}  // namespace
}  // namespace platform
