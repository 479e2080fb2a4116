#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <filesystem>

#include "platform/posix/ExclusiveRename.h"
#include "platform/posix/PrivateFolder.h"
#include "platform/posix/TreeCopy.h"
#include "tests/support/AsUser.h"
#include "tests/support/FailingCall.h"
#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::FailingCall;
using support::kNobody;
using support::modeAt;
using support::statusAt;
using support::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

class CopyItemTest : public ::testing::Test {
 protected:
  int copy(const std::string& from, const std::string& to, const CopyOptions& options = {}) {
    const auto copied = copyItemAtPath(ground_ / from, ground_ / to, options);
    error_ = copied ? "" : copied.error().description;
    return copied ? 0 : copied.error().code;
  }
  [[nodiscard]] std::vector<std::string> names(const std::string& folder = "") const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(ground_ / folder))
      names.push_back(entry.path().filename());
    return names;
  }
  /// Told at every step, not now and then.
  static CopyOptions atEachStep(OnProgress onProgress) {
    return {.onProgress = std::move(onProgress), .progressInterval = std::chrono::milliseconds(0)};
  }

  TemporaryFolder ground_;
  std::string error_;
};

TEST_F(CopyItemTest, HardLinksStayLinksAlsoWhereThePathEndsWithASlash) {
  ground_.file("tree/one", "text");
  fs::create_hard_link(ground_ / "tree/one", ground_ / "tree/two");
  for (const char* const end : {"", "/", "//"}) {
    const std::string to = std::string("copy") + std::to_string(std::string(end).size());
    ASSERT_EQ(copy(std::string("tree") + end, to), 0) << error_;
    EXPECT_EQ(statusAt(ground_ / (to + "/one")).st_ino, statusAt(ground_ / (to + "/two")).st_ino) << end;
  }
}

/// A folder below another in which a path to anything would be too long.
class LongWay {
 public:
  LongWay(const std::string& top, bool isMade) : folder_(::open(top.c_str(), O_RDONLY | O_DIRECTORY)) {
    const std::string name(NAME_MAX, 'd');
    for (int level = 0; level <= PATH_MAX / NAME_MAX; ++level) {
      if (isMade && ::mkdirat(folder_.get(), name.c_str(), 0700) != 0) ADD_FAILURE() << errno;
      folder_.reset(::openat(folder_.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
    }
  }
  [[nodiscard]] int descriptor() const { return folder_.get(); }
  [[nodiscard]] ino_t numberOf(const char* name) const {
    struct stat status {};
    EXPECT_EQ(::fstatat(folder_.get(), name, &status, AT_SYMLINK_NOFOLLOW), 0);
    return status.st_ino;
  }

 private:
  UniqueDescriptor folder_;
};

TEST_F(CopyItemTest, HardLinksStayLinksAlsoWhereNoPathLeads) {
  const std::string top = ground_.file("tree/top", "text");
  const LongWay source(ground_ / "tree", true);
  for (const char* const name : {"one", "two"}) {
    ASSERT_EQ(::linkat(AT_FDCWD, top.c_str(), source.descriptor(), name, 0), 0);
  }
  UniqueDescriptor(::openat(source.descriptor(), "three", O_CREAT | O_WRONLY, 0600)).reset();
  ASSERT_EQ(::linkat(source.descriptor(), "three", source.descriptor(), "four", 0), 0);

  ASSERT_EQ(copy("tree", "copy"), 0) << error_;
  const LongWay made(ground_ / "copy", false);
  EXPECT_EQ(made.numberOf("one"), statusAt(ground_ / "copy/top").st_ino);
  EXPECT_EQ(made.numberOf("two"), statusAt(ground_ / "copy/top").st_ino);
  EXPECT_EQ(made.numberOf("three"), made.numberOf("four"));
  EXPECT_NE(made.numberOf("three"), source.numberOf("three"));
}

/// Root copies from a volume of somebody else's making, which is mounted so that it can do no harm.
class CopyFromDisarmedVolumeTest : public CopyItemTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
    ASSERT_FALSE(ground_.folder("stick").empty());
    mountWith(MS_NOSUID | MS_NODEV);
    ground_.file("stick/tree/tool");
    ASSERT_EQ(::chmod((ground_ / "stick/tree/tool").c_str(), 06755), 0);
  }
  void TearDown() override { ::umount2((ground_ / "stick").c_str(), MNT_DETACH); }
  void mountWith(unsigned long flags) {
    ASSERT_EQ(::mount("none", (ground_ / "stick").c_str(), "tmpfs", flags, "size=1m"), 0);
  }
  [[nodiscard]] mode_t mode(const std::string& path) const { return modeAt(ground_ / path); }
};

TEST_F(CopyFromDisarmedVolumeTest, SetIdBitsAreNotArmed) {
  ASSERT_EQ(copy("stick/tree", "copy"), 0) << error_;
  EXPECT_EQ(mode("copy/tool"), 0755U);
  ASSERT_EQ(copy("stick/tree", "stick/copy"), 0) << error_;
  EXPECT_EQ(mode("stick/copy/tool"), 06755U) << "there they take no effect either";
  mountWith(MS_NODEV | MS_REMOUNT);
  ASSERT_EQ(copy("stick/tree", "armed"), 0) << error_;
  EXPECT_EQ(mode("armed/tool"), 06755U);
}

TEST_F(CopyFromDisarmedVolumeTest, SetIdBitsOfAVolumeThatIsMountedInWhatIsCopiedAreNotArmed) {
  ground_.file("tree/first");
  ASSERT_FALSE(ground_.folder("tree/bound").empty());
  const std::string bound = ground_ / "tree/bound";
  ASSERT_EQ(::mount((ground_ / "stick").c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0);
  const int reason = copy("tree", "copy");
  ::umount2(bound.c_str(), MNT_DETACH);
  ASSERT_EQ(reason, 0) << error_;
  EXPECT_EQ(mode("copy/bound/tree/tool"), 0755U);
}

TEST_F(CopyFromDisarmedVolumeTest, DevicesAreRefused) {
  ASSERT_EQ(::mknod((ground_ / "stick/tree/null").c_str(), S_IFCHR | 0666, 0x103), 0);
  EXPECT_EQ(copy("stick/tree", "copy"), ENOTSUP);
  EXPECT_THAT(error_, HasSubstr("stick/tree/null"));
  EXPECT_EQ(copy("stick/tree", "stick/copy"), 0) << error_;
}

TEST_F(CopyItemTest, AFolderArrivesAsItIs) {
  ground_.file("tree/sub/file", "text");
  ground_.file("tree/\xFF\xFE\n", "a name that is bytes");
  ASSERT_FALSE(ground_.folder("tree/empty").empty());
  fs::create_symlink("/nowhere", ground_ / "tree/link");
  fs::create_hard_link(ground_ / "tree/sub/file", ground_ / "tree/second");
  ASSERT_EQ(::chmod((ground_ / "tree/sub/file").c_str(), 0440), 0);
  ASSERT_EQ(::chmod((ground_ / "tree/empty").c_str(), 02711), 0);
  const timespec times[] = {{1000, 1}, {2000, 500}};
  for (const char* name : {"sub/file", "link", "empty", "sub", ""}) {
    ASSERT_EQ(
        ::utimensat(AT_FDCWD, (ground_ / ("tree/" + std::string(name))).c_str(), times, AT_SYMLINK_NOFOLLOW),
        0);
  }
  ASSERT_EQ(copy("tree", "copy"), 0) << error_;
  EXPECT_EQ(ground_.content("copy/sub/file"), "text");
  EXPECT_EQ(ground_.content("copy/\xFF\xFE\n"), "a name that is bytes");
  EXPECT_EQ(fs::read_symlink(ground_ / "copy/link"), "/nowhere");
  EXPECT_EQ(statusAt(ground_ / "copy/sub/file").st_ino, statusAt(ground_ / "copy/second").st_ino);
  EXPECT_EQ(modeAt(ground_ / "copy/sub/file"), 0440U);
  EXPECT_EQ(modeAt(ground_ / "copy/empty"), 02711U);
  for (const char* name : {"sub/file", "link", "empty", "sub", ""}) {
    const struct stat status = statusAt(ground_ / ("copy/" + std::string(name)));
    EXPECT_EQ(status.st_mtim.tv_sec, 2000) << name;
    EXPECT_EQ(status.st_mtim.tv_nsec, 500) << name;
  }
  EXPECT_THAT(names(), UnorderedElementsAre("tree", "copy"));
}

TEST_F(CopyItemTest, TheTimeOfAccessIsKept) {
  ground_.file("file", "text");
  const timespec times[] = {{1000, 1}, {2000, 500}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (ground_ / "file").c_str(), times, 0), 0);
  ASSERT_EQ(copy("file", "copy"), 0) << error_;
  EXPECT_EQ(statusAt(ground_ / "copy").st_atim.tv_sec, 1000);
}

TEST_F(CopyItemTest, ExtendedAttributesAreKept) {
  for (const char* name : {"tree", "tree/file"}) {
    ground_.file("tree/file");
    if (::setxattr((ground_ / name).c_str(), "user.note", "hello", 5, 0) != 0)
      GTEST_SKIP() << "no attributes here";
  }
  ASSERT_EQ(copy("tree", "copy"), 0) << error_;
  for (const char* name : {"copy", "copy/file"}) {
    char value[8] = {};
    EXPECT_EQ(::getxattr((ground_ / name).c_str(), "user.note", value, sizeof value), 5) << name;
  }
}

TEST_F(CopyItemTest, FilesOfEverySizeArriveWhole) {
  for (const std::size_t size : {0UL, 1UL, 65535UL, 65536UL, 65537UL, 131072UL, 131073UL, 3000001UL}) {
    const std::string content(size, static_cast<char>('a' + size % 26));
    ground_.file("file", content);
    ASSERT_EQ(copy("file", "copy"), 0) << error_;
    EXPECT_TRUE(ground_.content("copy") == content) << size;
    fs::remove(ground_ / "copy");
  }
}

TEST_F(CopyItemTest, AFileOfHolesIsCopiedByItsDataAlone) {
  const std::string file = ground_.file("sparse");
  constexpr off_t kSize = 1L << 40;
  ASSERT_EQ(::truncate(file.c_str(), kSize), 0);
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(::pwrite(descriptor, "middle", 6, kSize / 2), 6);
  ::close(descriptor);
  ASSERT_EQ(copy("sparse", "copy", optionsForMoving()), 0) << error_;
  EXPECT_EQ(statusAt(ground_ / "copy").st_size, kSize);
  EXPECT_LT(statusAt(ground_ / "copy").st_blocks, 1000);
  const int copied = ::open((ground_ / "copy").c_str(), O_RDONLY | O_CLOEXEC);
  char text[6] = {};
  EXPECT_EQ(::pread(copied, text, 6, kSize / 2), 6);
  EXPECT_EQ(std::string(text, 6), "middle");
  ::close(copied);
}

/// Some file systems answer so, for what they make up as it is read.
TEST_F(CopyItemTest, AFileThatTheFastWayFindsEmptyIsReadToItsEnd) {
  const std::string text(200'000, 'x');
  ground_.file("file", text);
  FailingCall::run(SYS_copy_file_range, 0, [this] { EXPECT_EQ(copy("file", "copy"), 0) << error_; });
  EXPECT_TRUE(ground_.content("copy") == text);
}

TEST_F(CopyItemTest, AFileThatCannotTellItsSizeIsReadToItsEnd) {
  const auto copied = copyItemAtPath("/proc/self/status", ground_ / "copy");
  ASSERT_TRUE(copied) << copied.error().description;
  EXPECT_THAT(ground_.content("copy"), HasSubstr("Name:"));
}

TEST_F(CopyItemTest, WhatIsThereIsNeverReplaced) {
  ground_.file("file", "new");
  ground_.file("taken", "old");
  fs::create_symlink("/nowhere", ground_ / "dangling");
  ASSERT_FALSE(ground_.folder("folder").empty());
  for (const char* to : {"taken", "dangling", "folder"}) EXPECT_EQ(copy("file", to), EEXIST) << to;
  EXPECT_EQ(ground_.content("taken"), "old");
  EXPECT_THAT(names(), UnorderedElementsAre("file", "taken", "dangling", "folder"));
}

TEST_F(CopyItemTest, ANameThatIsTakenMeanwhileIsNotReplacedEither) {
  ground_.file("file", "new");
  EXPECT_EQ(copy("file", "copy", atEachStep([this](const CopyProgress&) {
                   ground_.file("copy", "quicker");
                   return true;
                 })),
            EEXIST);
  EXPECT_EQ(ground_.content("copy"), "quicker");
  EXPECT_THAT(names(), UnorderedElementsAre("file", "copy"));
}

TEST_F(CopyItemTest, AMissingSourceAndAMissingFolderAreSaid) {
  ground_.file("file");
  EXPECT_EQ(copy("nothing", "copy"), ENOENT);
  EXPECT_THAT(error_, HasSubstr("/nothing: No such file"));
  EXPECT_EQ(copy("file", "nowhere/copy"), ENOENT);
  EXPECT_THAT(names(), UnorderedElementsAre("file"));
}

TEST_F(CopyItemTest, AFolderIsNotCopiedIntoItself) {
  ground_.file("tree/sub/file");
  EXPECT_EQ(copy("tree", "tree/copy"), EINVAL);
  EXPECT_EQ(copy("tree", "tree/sub/copy"), EINVAL);
  EXPECT_THAT(names("tree"), UnorderedElementsAre("sub"));
  EXPECT_THAT(names("tree/sub"), UnorderedElementsAre("file"));
}

TEST_F(CopyItemTest, FoldersTooDeepInEachOtherAreAnErrorAndNothingIsLeft) {
  std::string path = ground_ / "deep";
  for (int depth = 0; depth < 300; ++depth) path += "/d";
  fs::create_directories(path);
  EXPECT_EQ(copy("deep", "copy"), ENAMETOOLONG);
  const auto size = sizeOfTree(ground_ / "deep");
  ASSERT_FALSE(size);
  EXPECT_EQ(size.error().code, ENAMETOOLONG);
  EXPECT_THAT(names(), UnorderedElementsAre("deep"));
}

TEST_F(CopyItemTest, WhatVanishesMeanwhileIsNamedAndNothingIsLeft) {
  for (const char* name : {"a", "b", "c"}) ground_.file("tree/" + std::string(name));
  EXPECT_EQ(copy("tree", "copy", atEachStep([this](const CopyProgress&) {
                   for (const char* name : {"a", "b", "c"})
                     fs::remove(ground_ / ("tree/" + std::string(name)));
                   return true;
                 })),
            ENOENT);
  EXPECT_THAT(error_, HasSubstr(ground_ / "tree/"));
  EXPECT_THAT(names(), UnorderedElementsAre("tree"));
}

TEST_F(CopyItemTest, CancellingInTheMiddleOfAFileLeavesNothing) {
  constexpr std::size_t kSize = 64UL << 20;
  ground_.file("file", std::string(kSize, 'x'));
  std::uint64_t done = 0;
  std::chrono::steady_clock::time_point cancelled;
  EXPECT_EQ(copy("file", "copy", atEachStep([&](const CopyProgress& progress) {
                   done = progress.bytesDone;
                   cancelled = std::chrono::steady_clock::now();
                   return done == 0;
                 })),
            ECANCELED);
  EXPECT_LT(std::chrono::steady_clock::now() - cancelled, std::chrono::milliseconds(100));
  EXPECT_GT(done, 0U);
  EXPECT_LT(done, kSize) << "in the middle of it";
  EXPECT_THAT(names(), UnorderedElementsAre("file"));
}

TEST_F(CopyItemTest, ProgressComesToWhatWasCounted) {
  ground_.file("tree/large", std::string(5'000'000, 'x'));
  ground_.file("tree/sub/small", "small");
  fs::create_symlink("/nowhere", ground_ / "tree/link");
  fs::create_hard_link(ground_ / "tree/large", ground_ / "tree/second");
  ASSERT_EQ(::truncate(ground_.file("tree/sparse").c_str(), 1'000'000), 0);
  const auto size = sizeOfTree(ground_ / "tree");
  ASSERT_TRUE(size);
  EXPECT_EQ(size.value().bytes, 6'000'005U);
  EXPECT_EQ(size.value().objects, 7U);
  CopyProgress last;
  std::uint64_t before = 0;
  ASSERT_EQ(copy("tree", "copy", atEachStep([&](const CopyProgress& progress) {
                   EXPECT_GE(progress.bytesDone, before);
                   EXPECT_THAT(progress.currentItem, ::testing::StartsWith(ground_ / "tree"));
                   before = progress.bytesDone;
                   last = progress;
                   return true;
                 })),
            0);
  EXPECT_EQ(last.bytesDone, size.value().bytes);
  EXPECT_EQ(last.objectsDone, size.value().objects);
}

TEST_F(CopyItemTest, CountingCanBeCancelled) {
  ground_.file("tree/file");
  const auto size = sizeOfTree(ground_ / "tree", [] { return false; });
  ASSERT_FALSE(size);
  EXPECT_EQ(size.error().code, ECANCELED);
}

TEST_F(CopyItemTest, AFolderOfManyEntriesCanBeCancelledWhileItIsListed) {
  for (int index = 0; index < 100; ++index) ground_.file("tree/" + std::to_string(index));
  int asked = 0;
  const auto goesOn = [&asked] { return ++asked > 0; };
  ASSERT_TRUE(sizeOfTree(ground_ / "tree", goesOn));
  EXPECT_EQ(asked, 201) << "for the folder, and for each entry when it is listed and when it is counted";
  asked = 0;
  ASSERT_EQ(copy("tree", "copy", atEachStep([&](const CopyProgress&) { return goesOn(); })), 0);
  EXPECT_GE(asked, 200);
}

class CopyItemAsRootTest : public CopyItemTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    ground_.makeAccessibleToAll();
  }
};

TEST_F(CopyItemAsRootTest, AUserGetsACopyOfSomebodyElsesFileWithoutItsSetIdBits) {
  ASSERT_EQ(::chmod(ground_.file("program", "text").c_str(), 06755), 0);
  ASSERT_EQ(::chown(ground_.folder("home").c_str(), kNobody, kNobody), 0);
  AsUser::run(kNobody, [this] { EXPECT_EQ(copy("program", "home/copy"), 0) << error_; });
  EXPECT_EQ(statusAt(ground_ / "home/copy").st_uid, kNobody);
  EXPECT_EQ(modeAt(ground_ / "home/copy"), 0755U);
}

TEST_F(CopyItemAsRootTest, AUserCopiesAFolderThatMayNotBeWritten) {
  ground_.file("home/tree/sub/file", "text");
  ASSERT_EQ(::chmod((ground_ / "home/tree").c_str(), 0555), 0);
  ASSERT_EQ(::chown((ground_ / "home").c_str(), kNobody, kNobody), 0);
  AsUser::run(kNobody, [this] { EXPECT_EQ(copy("home/tree", "home/copy"), 0) << error_; });
  EXPECT_EQ(modeAt(ground_ / "home/copy"), 0555U);
  EXPECT_EQ(ground_.content("home/copy/sub/file"), "text");
  EXPECT_THAT(names("home"), UnorderedElementsAre("tree", "copy"));
}

TEST_F(CopyItemAsRootTest, ACopyOfFoldersThatMayNotBeWrittenLeavesNothingWhenItFails) {
  ground_.file("home/tree/sub/file", "text");
  for (const char* path : {"home/tree/sub", "home/tree"}) ::chmod((ground_ / path).c_str(), 0555);
  ASSERT_EQ(::chown((ground_ / "home").c_str(), kNobody, kNobody), 0);
  AsUser::run(kNobody, [this] {
    const auto takeTheName = [this](const CopyProgress&) {
      ground_.file("home/copy", "theirs");
      return true;
    };
    EXPECT_EQ(copy("home/tree", "home/copy", atEachStep(takeTheName)), EEXIST);
  });
  EXPECT_EQ(ground_.content("home/copy"), "theirs");
  EXPECT_THAT(names("home"), UnorderedElementsAre("tree", "copy"));
}

TEST_F(CopyItemAsRootTest, RootKeepsOwnersModesAndDevices) {
  ASSERT_EQ(::chown(ground_.file("tree/file", "text").c_str(), kNobody, 7), 0);
  ASSERT_EQ(::chmod((ground_ / "tree/file").c_str(), 04755), 0);
  ASSERT_EQ(::mknod((ground_ / "tree/null").c_str(), S_IFCHR | 0620, 0x103), 0);
  ASSERT_EQ(copy("tree", "copy"), 0) << error_;
  EXPECT_EQ(statusAt(ground_ / "copy/file").st_uid, kNobody);
  EXPECT_EQ(statusAt(ground_ / "copy/file").st_gid, 7U);
  EXPECT_EQ(modeAt(ground_ / "copy/file"), 04755U);
  EXPECT_EQ(statusAt(ground_ / "copy/null").st_rdev, 0x103U);
}

TEST_F(CopyItemAsRootTest, AFileThatTheUserCannotReadIsNamedAndNothingIsLeft) {
  ASSERT_EQ(::chmod(ground_.file("home/tree/secret").c_str(), 0600), 0);
  ASSERT_EQ(::chown((ground_ / "home").c_str(), kNobody, kNobody), 0);
  AsUser::run(kNobody, [this] {
    EXPECT_EQ(copy("home/tree", "home/copy"), EACCES);
    EXPECT_THAT(error_, HasSubstr("/tree/secret: Permission denied"));
  });
  EXPECT_THAT(names("home"), UnorderedElementsAre("tree"));
}

/// A file system as on memory cards: no modes of its own.
TEST_F(CopyItemTest, AModeThatCannotBeKeptStaysBehindWhereOnlyWhatIsPossibleIsAskedFor) {
  ASSERT_EQ(::chmod(ground_.file("tree/file", "text").c_str(), 0666), 0);
  for (const Fidelity fidelity : {Fidelity::possible, Fidelity::exact}) {
    FailingCall::run(SYS_fchmod, EPERM, [&] {
      const int expected = fidelity == Fidelity::possible ? 0 : EPERM;
      EXPECT_EQ(copy("tree", "copy", {.fidelity = fidelity}), expected) << error_;
    });
    fs::remove_all(ground_ / "copy");
  }
}

/// What a network volume could not store shows when a file is closed.
TEST_F(CopyItemTest, AFileThatCannotBeClosedIsNoCopy) {
  ground_.file("file", "text");
  FailingCall::run(SYS_close, EDQUOT, [this] {
    EXPECT_EQ(copy("file", "copy"), EDQUOT);
    EXPECT_THAT(error_, HasSubstr("file: "));
    EXPECT_FALSE(fs::exists(ground_ / "copy"));
  });
}

/// A call that says it made a folder and made none leaves what somebody else has put there.
TEST_F(CopyItemAsRootTest, AFolderThatSomebodyPutInPlaceOfTheCopyIsNotFilled) {
  ground_.file("tree/a");
  ASSERT_EQ(::chown(ground_.folder("copy").c_str(), kNobody, kNobody), 0);
  const UniqueDescriptor folder(::open(ground_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  FailingCall::run(SYS_mkdirat, 0, [&] {
    const auto copied = copyItem(folder.get(), "tree", folder.get(), "copy", "tree", {});
    ASSERT_FALSE(copied);
    EXPECT_EQ(copied.error().code, EBUSY);
  });
}

TEST_F(CopyItemAsRootTest, AFullDiskLeavesNothing) {
  const std::string small = ground_.folder("small");
  ASSERT_EQ(::mount("none", small.c_str(), "tmpfs", 0, "size=64k"), 0);
  ground_.file("tree/a", "1");
  ground_.file("tree/b", std::string(1 << 20, 'b'));
  const int reason = copy("tree", "small/copy");
  const auto left = names("small");
  ASSERT_EQ(::umount(small.c_str()), 0);
  EXPECT_EQ(reason, ENOSPC);
  EXPECT_TRUE(left.empty());
}

TEST_F(CopyItemAsRootTest, RootIsLedNowhereByALinkOfSomebodyElses) {
  ground_.file("elsewhere/file", "text");
  fs::create_directory_symlink("elsewhere", ground_ / "users");
  ASSERT_EQ(::lchown((ground_ / "users").c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(copy("elsewhere/file", "users/copy"), ELOOP);
  EXPECT_EQ(copy("users/file", "copy"), ELOOP);
  EXPECT_EQ(copy("users", "copy"), 0) << "a link at the end is what is copied";
  EXPECT_THAT(names("elsewhere"), UnorderedElementsAre("file"));
  ASSERT_EQ(::chown(ground_.folder("home").c_str(), kNobody, kNobody), 0);
  AsUser::run(kNobody, [this] { EXPECT_EQ(copy("users/file", "home/copy"), 0) << "a user follows it"; });
}

/// The same folder in two places, as two volumes.
class CopyItemAcrossABindMountTest : public CopyItemAsRootTest {
 protected:
  void SetUp() override {
    CopyItemAsRootTest::SetUp();
    if (IsSkipped()) return;
    ground_.file("tree/sub/file", "text");
    const std::string second = ground_.folder("second");
    ASSERT_EQ(::mount((ground_ / "tree").c_str(), second.c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  void TearDown() override { ::umount2((ground_ / "second").c_str(), MNT_DETACH); }
};

TEST_F(CopyItemAcrossABindMountTest, ItIsCopiedFromAndInto) {
  EXPECT_EQ(copy("second/sub", "copy"), 0) << error_;
  EXPECT_EQ(ground_.content("copy/file"), "text");
  EXPECT_EQ(copy("copy", "second/copy"), 0) << error_;
  EXPECT_EQ(ground_.content("tree/copy/file"), "text");
}

TEST_F(CopyItemAcrossABindMountTest, AFolderIsNotCopiedIntoItselfByTheOtherWay) {
  EXPECT_EQ(copy("tree", "second/copy"), EINVAL);
  EXPECT_EQ(copy("second", "tree/sub/copy"), EINVAL);
  EXPECT_THAT(names("tree"), UnorderedElementsAre("sub"));
  EXPECT_THAT(names("tree/sub"), UnorderedElementsAre("file"));
}

TEST_F(CopyItemAcrossABindMountTest, WhatIsMountedInAFolderIsCopiedWithIt) {
  ASSERT_FALSE(ground_.folder("outer/mounted").empty());
  ASSERT_EQ(
      ::mount((ground_ / "tree").c_str(), (ground_ / "outer/mounted").c_str(), nullptr, MS_BIND, nullptr), 0);
  const int reason = copy("outer", "copy");
  ASSERT_EQ(::umount((ground_ / "outer/mounted").c_str()), 0);
  EXPECT_EQ(reason, 0) << error_;
  EXPECT_EQ(ground_.content("copy/mounted/sub/file"), "text");
}

/// A move as to another file system, of "tree".
class MoveByCopyTest : public CopyItemTest {
 protected:
  MoveByCopyTest() {
    ground_.file("tree/a", "text");
    ground_.file("tree/sub/b", std::string(100'000, 'b'));
    fs::create_symlink("a", ground_ / "tree/link");
  }
  using OnPlaced = std::function<void(int toFolder)>;

  /// Answers 0 or the reason; it arrives as "moved". `onPlaced` is called once it has that name.
  int move(const OnProgress& onProgress = {}, const OnPlaced& onPlaced = {}) {
    CopyOptions options = optionsForMoving();
    options.onProgress = onProgress;
    options.progressInterval = std::chrono::milliseconds(0);
    const UniqueDescriptor folder(::open(ground_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueDescriptor target(::open(ground_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const auto moved = moveByCopy(
        folder.get(), "tree", target.get(), "tree",
        [&](int from, const std::string& name) {
          auto placed = renameWithoutReplacing(from, name, target.get(), "moved", name);
          if (onPlaced) onPlaced(target.get());
          return placed;
        },
        {}, options);
    error_ = moved ? "" : moved.error().description;
    return moved ? 0 : moved.error().code;
  }
  /// The copy that grows beside.
  [[nodiscard]] std::string copyInHand() const {
    for (const std::string& name : names())
      if (name.starts_with(".copying-")) return ground_ / (name + "/tree");
    return "";
  }
  void expectNothingHasHappened() const {
    EXPECT_THAT(names(), UnorderedElementsAre("tree"));
    EXPECT_THAT(names("tree"), UnorderedElementsAre("a", "sub", "link"));
    EXPECT_EQ(ground_.content("tree/a"), "text");
    EXPECT_EQ(ground_.content("tree/sub/b"), std::string(100'000, 'b'));
  }
  void expectBothAreThere() const {
    EXPECT_THAT(names(), UnorderedElementsAre("tree", "moved"));
    EXPECT_TRUE(fs::exists(ground_ / "tree/a"));
    EXPECT_TRUE(fs::exists(ground_ / "tree/sub/b"));
  }
  /// For any user, in the folder that both lie in: it may be written and not read.
  void makeItsFolderWriteOnly() const {
    if (::geteuid() == 0) {
      for (const char* const owned : {"", "tree", "tree/a", "tree/link", "tree/sub", "tree/sub/b"})
        ASSERT_EQ(::lchown((ground_ / owned).c_str(), kNobody, kNobody), 0) << owned;
    }
    ASSERT_EQ(::chmod(ground_.path().c_str(), 0300), 0);
  }
};

TEST_F(MoveByCopyTest, WhatIsCopiedIsRemoved) {
  EXPECT_EQ(move(), 0) << error_;
  EXPECT_THAT(names(), UnorderedElementsAre("moved"));
  EXPECT_EQ(ground_.content("moved/sub/b"), std::string(100'000, 'b'));
}

TEST_F(MoveByCopyTest, ACopyThatDiffersWhenItIsReadBackIsThrownAwayAndTheOriginalStays) {
  EXPECT_EQ(move([this](const CopyProgress&) {
              const std::string copy = copyInHand() + "/a";
              if (fs::exists(copy) && fs::file_size(copy) == 4) std::ofstream(copy) << "TEXT";
              return true;
            }),
            EIO);
  EXPECT_THAT(error_, HasSubstr("tree/a: the copy differs"));
  expectNothingHasHappened();
}

TEST_F(MoveByCopyTest, AnOriginalThatChangesMeanwhileStaysAndItsCopyIsThrownAway) {
  EXPECT_EQ(move([this](const CopyProgress&) {
              if (fs::exists(copyInHand() + "/a")) ground_.file("tree/a", "changed");
              return true;
            }),
            EBUSY);
  EXPECT_THAT(error_, HasSubstr("tree/a: changed while it was copied"));
  EXPECT_THAT(names(), UnorderedElementsAre("tree"));
  EXPECT_EQ(ground_.content("tree/a"), "changed");
}

TEST_F(MoveByCopyTest, AnOriginalThatChangesWhileItIsComparedStays) {
  EXPECT_EQ(move([this](const CopyProgress& progress) {
              const bool isComparing = progress.objectsDone == 5;
              if (isComparing && progress.currentItem.ends_with("sub/b")) {
                ::utimensat(AT_FDCWD, (ground_ / "tree/sub/b").c_str(), nullptr, 0);
              }
              return true;
            }),
            EBUSY);
  EXPECT_THAT(error_, HasSubstr("tree/sub/b: changed while it was copied"));
  expectNothingHasHappened();
}

/// Where a second name cannot become a link, its copy is one by itself.
TEST_F(MoveByCopyTest, EachNameThatBecameAFileOfItsOwnIsCompared) {
  fs::create_hard_link(ground_ / "tree/a", ground_ / "tree/second");
  for (const char* const name : {"/a", "/second"}) {
    FailingCall::run(SYS_linkat, EPERM, [&] {
      EXPECT_EQ(move([&](const CopyProgress& progress) {
                  if (progress.objectsDone == 6) std::ofstream(copyInHand() + name) << "TEXT";
                  return true;
                }),
                EIO)
          << name;
    });
    EXPECT_EQ(ground_.content("tree/second"), "text");
  }
}

/// The disk is written (syncfs) and read back (pread64) before the name is given (renameat2).
TEST_F(MoveByCopyTest, WhateverFailsTheOriginalIsWholeAndNoHalfCopyIsThere) {
  for (const long call : {SYS_mkdirat, SYS_symlinkat, SYS_pwrite64, SYS_pread64, SYS_utimensat, SYS_syncfs,
                          SYS_lseek, SYS_renameat2}) {
    FailingCall::run(call, EIO, [&] { EXPECT_EQ(move(), EIO) << call; });
    expectNothingHasHappened();
  }
}

TEST_F(MoveByCopyTest, NoOriginalIsRemovedBeforeItsNewNameIsOnTheDisk) {
  FailingCall::run(SYS_fsync, EIO, [&] { EXPECT_EQ(move(), EIO); });
  expectBothAreThere();
}

TEST_F(MoveByCopyTest, NoOriginalIsRemovedWhereTheFolderOfItsNewNameCannotBeOpened) {
  const auto closeFolder = [](int toFolder) { FailingCall::alsoOf(toFolder, SYS_openat, EMFILE); };
  FailingCall::run(SYS_fsync, EIO, [&] { EXPECT_EQ(move({}, closeFolder), EMFILE) << "not synced"; });
  expectBothAreThere();
}

TEST_F(MoveByCopyTest, AFolderThatIsNeverSyncedByItselfIsMovedTo) {
  FailingCall::run(SYS_fsync, EINVAL, [&] { EXPECT_EQ(move(), 0) << error_; });
  EXPECT_THAT(names(), UnorderedElementsAre("moved"));
}

TEST_F(MoveByCopyTest, AFolderThatMayNotBeReadIsMovedTo) {
  makeItsFolderWriteOnly();
  AsUser::run(kNobody, [&] { EXPECT_EQ(move(), 0) << error_; });
  ASSERT_EQ(::chmod(ground_.path().c_str(), 0700), 0);
  EXPECT_THAT(names(), UnorderedElementsAre("moved"));
}

/// For those two the volume as a whole is synced: not before the new name is there.
class MoveByVolumeTest : public MoveByCopyTest {
 protected:
  /// Answers as move() does; once the new name is there, the volume fails.
  int moveOnFailingVolume() {
    return move({}, [](int /*toFolder*/) { FailingCall::also(SYS_syncfs, EIO); });
  }
};

TEST_F(MoveByVolumeTest, NoOriginalIsRemovedWhereThatFailsForAFolderThatIsNeverSyncedByItself) {
  FailingCall::run(SYS_fsync, EINVAL, [&] { EXPECT_EQ(moveOnFailingVolume(), EIO); });
  expectBothAreThere();
}

TEST_F(MoveByVolumeTest, NoOriginalIsRemovedWhereThatFailsForAFolderThatMayNotBeRead) {
  makeItsFolderWriteOnly();
  const auto asUser = [&] { AsUser::run(kNobody, [&] { EXPECT_EQ(moveOnFailingVolume(), EIO); }); };
  FailingCall::run(SYS_fsync, ENOTSUP, asUser);
  ASSERT_EQ(::chmod(ground_.path().c_str(), 0700), 0);
  expectBothAreThere();
}

TEST(PrivateFolder, ItIsHiddenClosedToOthersAndGoneWithWhatIsInIt) {
  const TemporaryFolder ground;
  const UniqueDescriptor parent(::open(ground.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  {
    const auto folder = PrivateFolder::make(parent.get(), ground.path());
    ASSERT_TRUE(folder);
    const auto entry = *fs::directory_iterator(ground.path());
    EXPECT_THAT(entry.path().filename().string(), ::testing::StartsWith(".copying-"));
    EXPECT_EQ(modeAt(entry.path()), 0700U);
    fs::create_directories(entry.path() / "a/b");
  }
  EXPECT_TRUE(fs::is_empty(ground.path()));
}

TEST(PrivateFolder, TheListsOfTheFolderAroundItAreNotTakenOver) {
  const TemporaryFolder ground;
  struct Entry {
    std::uint16_t tag, rights;
    std::uint32_t account;
  };
  const struct {  // as <linux/posix_acl_xattr.h> lays it out
    std::uint32_t version = 2;
    Entry entries[5] = {{0x01, 7, ~0U}, {0x02, 7, kNobody}, {0x04, 0, ~0U}, {0x10, 7, ~0U}, {0x20, 0, ~0U}};
  } list;
  constexpr const char* kDefault = "system.posix_acl_default";
  if (::setxattr(ground.path().c_str(), kDefault, &list, sizeof list, 0) != 0 && errno == EOPNOTSUPP) {
    GTEST_SKIP() << "the temporary folder's file system has no access control lists";
  }
  const UniqueDescriptor parent(::open(ground.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto folder = PrivateFolder::make(parent.get(), ground.path());
  ASSERT_TRUE(folder);
  for (const char* name : {kDefault, "system.posix_acl_access"}) {
    EXPECT_EQ(::fgetxattr(folder.value().descriptor(), name, nullptr, 0), -1) << name;
  }
}

TEST(PrivateFolder, AFolderWithSomethingInItOrOpenToOthersIsNoFreshOne) {
  const TemporaryFolder ground;
  const UniqueDescriptor folder(::open(ground.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_TRUE(requireFreshFolder(folder.get(), 0700, "x"));
  EXPECT_EQ(static_cast<bool>(requireFreshFolder(folder.get(), 0755, "x")), ::geteuid() != 0) << "a user may";
  ground.file("something");
  EXPECT_FALSE(requireFreshFolder(folder.get(), 0700, "x"));
}

/// Memory cards and the like have one mode for all that is on them.
TEST(PrivateFolder, AUserTakesAFolderOfTheirOwnWhateverModeTheVolumeGivesIt) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const TemporaryFolder ground;
  ground.makeAccessibleToAll();
  ASSERT_EQ(::chown(ground.folder("theirs").c_str(), kNobody, kNobody), 0);
  ASSERT_EQ(::chmod((ground / "theirs").c_str(), 0755), 0);
  AsUser::run(kNobody, [&] {
    const UniqueDescriptor theirs(::open((ground / "theirs").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_TRUE(requireFreshFolder(theirs.get(), 0700, "x"));
    const UniqueDescriptor roots(::open(ground.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_FALSE(requireFreshFolder(roots.get(), 0700, "x")) << "somebody else's";
  });
}

}  // namespace
}  // namespace platform
