#include "platform/linux/LinuxFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/platform/TemporaryFolder.h"
#include "tests/support/AsUser.h"
#include "tests/support/ChangedRoot.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::ChangedRoot;
using support::kNobody;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

mode_t modeOf(const std::string& path) {
  return statusOf(path).st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  return names;
}

class LinuxFilesTest : public ::testing::Test {
 protected:
  tests::TemporaryFolder folder;
  LinuxFileQueries queries;
  LinuxFileChanges changes;
};

/// A file system of its own, of 1 MiB, mounted in the test's folder.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(std::string path) : path_(std::move(path)) {
    fs::create_directory(path_);
    mounted_ = ::mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=1m") == 0;
  }
  ~SmallFileSystem() {
    if (mounted_) ::umount2(path_.c_str(), MNT_DETACH);
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;
  [[nodiscard]] bool isMounted() const { return mounted_; }
  [[nodiscard]] std::string path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
  bool mounted_ = false;
};

TEST_F(LinuxFilesTest, CreatesTheFoldersAboveToo) {
  EXPECT_TRUE(changes.createDirectory(folder.path("a/b/c/")).ok());
  EXPECT_TRUE(fs::is_directory(folder.path("a/b/c")));
  EXPECT_TRUE(changes.createDirectory(folder.path("a/b")).ok());
}

TEST_F(LinuxFilesTest, AFolderCannotBeMadeWhereAFileIs) {
  folder.makeFile("file");
  fs::create_symlink("/nonexistent/x", folder.path("dangling"));
  EXPECT_EQ(changes.createDirectory(folder.path("file")).error().code, EEXIST);
  EXPECT_EQ(changes.createDirectory(folder.path("file/below")).error().code, ENOTDIR);
  EXPECT_EQ(changes.createDirectory(folder.path("dangling")).error().code, EEXIST);
  EXPECT_EQ(changes.createDirectory("").error().code, ENOENT);
}

TEST_F(LinuxFilesTest, MovesWithinAFileSystem) {
  folder.makeFile("from/file", "x");
  EXPECT_TRUE(changes.move(folder.path("from/"), folder.path("to")).ok());
  EXPECT_EQ(folder.read("to/file"), "x");
  EXPECT_FALSE(fs::exists(folder.path("from")));
}

TEST_F(LinuxFilesTest, MovingNeverReplacesAnything) {
  folder.makeFile("from", "new");
  folder.makeFile("to", "old");
  fs::create_symlink("/nonexistent", folder.path("dangling"));
  fs::create_directory(folder.path("empty"));
  for (const char* const taken : {"to", "dangling", "empty"}) {
    const auto moved = changes.move(folder.path("from"), folder.path(taken));
    ASSERT_FALSE(moved.ok());
    EXPECT_EQ(moved.error().code, EEXIST);
    EXPECT_EQ(moved.error().path, folder.path(taken));
  }
  EXPECT_EQ(folder.read("to"), "old");
  EXPECT_EQ(folder.read("from"), "new");
}

TEST_F(LinuxFilesTest, MovingALinkMovesTheLink) {
  fs::create_symlink("/nonexistent", folder.path("link"));
  EXPECT_TRUE(changes.move(folder.path("link"), folder.path("moved")).ok());
  EXPECT_EQ(fs::read_symlink(folder.path("moved")), "/nonexistent");
}

TEST_F(LinuxFilesTest, AMoveThatCannotBeMadeSaysWhy) {
  EXPECT_EQ(changes.move(folder.path("absent"), folder.path("to")).error().code, ENOENT);
  EXPECT_EQ(changes.move(folder.makeFile("file"), folder.path("absent/to")).error().code, ENOENT);
  fs::create_directory(folder.path("outer"));
  EXPECT_EQ(changes.move(folder.path("outer"), folder.path("outer/inner")).error().code, EINVAL);
}

TEST_F(LinuxFilesTest, AMoveToAnotherFileSystemKeepsEverything) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount and to give files away";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  const std::string file = folder.makeFile("from/inside/file", "content");
  fs::create_symlink("file", folder.path("from/inside/link"));
  ASSERT_EQ(::mkfifo(folder.path("from/fifo").c_str(), 0640), 0);
  ASSERT_EQ(::chown(file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(::lchown(folder.path("from/inside/link").c_str(), 1234, 4321), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0604), 0);
  ASSERT_EQ(::setxattr(file.c_str(), "trusted.quillmend", "x", 1, 0), 0);
  const timespec times[] = {{1000000000, 1}, {1100000000, 2}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);

  const auto moved = changes.move(folder.path("from"), other.path("to"));
  ASSERT_TRUE(moved.ok()) << moved.error().localizedDescription();
  EXPECT_FALSE(fs::exists(folder.path("from")));
  EXPECT_THAT(namesIn(other.path("")), ElementsAre("to"));
  const struct stat status = statusOf(other.path("to/inside/file"));
  EXPECT_EQ(tests::TemporaryFolder::readAt(other.path("to/inside/file")), "content");
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 4321U);
  EXPECT_EQ(status.st_mode & 07777, 0604U);
  EXPECT_EQ(status.st_mtim.tv_sec, 1100000000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 2);
  char value = 0;
  EXPECT_EQ(::getxattr(other.path("to/inside/file").c_str(), "trusted.quillmend", &value, 1), 1);
  EXPECT_EQ(fs::read_symlink(other.path("to/inside/link")), "file");
  EXPECT_EQ(statusOf(other.path("to/inside/link")).st_uid, 1234U);
  EXPECT_TRUE(S_ISFIFO(statusOf(other.path("to/fifo")).st_mode));
}

TEST_F(LinuxFilesTest, AMoveThatDoesNotFitLeavesEverythingAsItWas) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  folder.makeFile("from/small", "x");
  folder.makeFile("from/big", std::string(2 << 20, 'x'));
  EXPECT_EQ(changes.move(folder.path("from"), other.path("to")).error().code, ENOSPC);
  EXPECT_THAT(namesIn(other.path("")), IsEmpty());
  EXPECT_THAT(namesIn(folder.path("from")), UnorderedElementsAre("small", "big"));
}

TEST_F(LinuxFilesTest, AMoveToAnotherFileSystemReplacesNothingEither) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other.path("to")) << "old";
  EXPECT_FALSE(changes.move(folder.makeFile("from", "new"), other.path("to")).ok());
  EXPECT_EQ(tests::TemporaryFolder::readAt(other.path("to")), "old");
  EXPECT_EQ(folder.read("from"), "new");
  EXPECT_THAT(namesIn(other.path("")), ElementsAre("to"));
}

TEST_F(LinuxFilesTest, RemovesWholeFoldersAndLinksThemselves) {
  folder.makeFile("keep/file", "x");
  folder.makeFile("gone/a/b", "x");
  fs::create_directory_symlink(folder.path("keep"), folder.path("gone/a/link"));
  fs::create_directory_symlink(folder.path("keep"), folder.path("link"));
  EXPECT_TRUE(changes.remove(folder.path("gone")).ok());
  EXPECT_TRUE(changes.remove(folder.path("link")).ok());
  EXPECT_EQ(folder.read("keep/file"), "x");
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("keep"));
  EXPECT_EQ(changes.remove(folder.path("gone")).error().code, ENOENT);
}

TEST_F(LinuxFilesTest, WritesANewFileWithTheUsualMode) {
  const mode_t before = ::umask(0027);
  EXPECT_TRUE(changes.writeAtomically(folder.path("file"), "content").ok());
  ::umask(before);
  EXPECT_EQ(folder.read("file"), "content");
  EXPECT_EQ(modeOf(folder.path("file")), 0640U);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(LinuxFilesTest, ReplacingAFileKeepsItsOwnerAndMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  const std::string file = folder.makeFile("file", "old");
  ASSERT_EQ(::chown(file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0660), 0);
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(statusOf(file).st_uid, 1234U);
  EXPECT_EQ(statusOf(file).st_gid, 4321U);
  EXPECT_EQ(modeOf(file), 0660U);
}

TEST_F(LinuxFilesTest, ReplacingAFileDoesNotTakeSetIdBitsOver) {
  const std::string file = folder.makeFile("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 06755), 0);
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(modeOf(file), 0755U);
}

TEST_F(LinuxFilesTest, APlantedLinkIsReplacedAndWhatItLeadsToUntouched) {
  const std::string victim = folder.makeFile("victim", "precious");
  fs::create_symlink(victim, folder.path("link"));
  ASSERT_EQ(::link(victim.c_str(), folder.path("hard").c_str()), 0);
  EXPECT_TRUE(changes.writeAtomically(folder.path("link"), "new").ok());
  EXPECT_TRUE(changes.writeAtomically(folder.path("hard"), "new").ok());
  EXPECT_EQ(folder.read("victim"), "precious");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder.path("link"))));
  EXPECT_EQ(folder.read("link"), "new");
  EXPECT_EQ(folder.read("hard"), "new");
}

TEST_F(LinuxFilesTest, AFolderIsNotReplacedByAFile) {
  fs::create_directory(folder.path("sub"));
  EXPECT_EQ(changes.writeAtomically(folder.path("sub"), "x").error().code, EISDIR);
  EXPECT_EQ(changes.writeAtomically(folder.path("absent/file"), "x").error().code, ENOENT);
  EXPECT_EQ(changes.writeAtomically("/", "x").error().code, EISDIR);
  EXPECT_EQ(changes.writeAtomically("", "x").error().code, ENOENT);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("sub"));
}

TEST_F(LinuxFilesTest, ANameOfTheGreatestLengthCanBeReplaced) {
  const std::string file = folder.makeFile(std::string(255, 'x'), "old");
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(tests::TemporaryFolder::readAt(file), "new");
}

TEST_F(LinuxFilesTest, AFullDiskLeavesTheOldFileAndNoTrace) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other.path("file")) << "old";
  EXPECT_EQ(changes.writeAtomically(other.path("file"), std::string(2 << 20, 'x')).error().code, ENOSPC);
  EXPECT_EQ(tests::TemporaryFolder::readAt(other.path("file")), "old");
  EXPECT_THAT(namesIn(other.path("")), ElementsAre("file"));
}

TEST_F(LinuxFilesTest, WritingFromManyThreadsAlwaysLeavesOneWholeFile) {
  const std::string file = folder.path("file");
  std::vector<std::thread> writers;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    writers.emplace_back([&, letter] {
      for (int count = 0; count < 10; ++count) {
        EXPECT_TRUE(changes.writeAtomically(file, std::string(100000, letter)).ok());
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string content = folder.read("file");
  EXPECT_EQ(content, std::string(100000, content.at(0)));
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(LinuxFilesTest, OpensAnExistingFileAtItsStartWithoutCuttingIt) {
  const std::string file = folder.makeFile("file", "abcdef");
  auto writable = changes.openForWriting(file);
  ASSERT_TRUE(writable.ok());
  EXPECT_TRUE(writable.value()->write("XY").ok());
  EXPECT_EQ(folder.read("file"), "XYcdef");
  EXPECT_TRUE(writable.value()->seekToEnd().ok());
  EXPECT_TRUE(writable.value()->write("Z").ok());
  EXPECT_EQ(folder.read("file"), "XYcdefZ");
}

TEST_F(LinuxFilesTest, OpeningForWritingMakesNothingFollowsNothingAndNeverBlocks) {
  const std::string file = folder.makeFile("file");
  fs::create_symlink(file, folder.path("link"));
  EXPECT_EQ(changes.openForWriting(folder.path("absent")).error().code, ENOENT);
  EXPECT_EQ(changes.openForWriting(folder.path("link")).error().code, ELOOP);
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(changes.openForWriting(folder.path("fifo")).error().code, EINVAL);
  EXPECT_EQ(changes.openForWriting(folder.path()).error().code, EINVAL);
  EXPECT_FALSE(fs::exists(folder.path("absent")));
}

TEST_F(LinuxFilesTest, RootDoesNotWriteToAFileThatHasFurtherNames) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.makeFile("file");
  ASSERT_EQ(::link(file.c_str(), folder.path("second").c_str()), 0);
  EXPECT_EQ(changes.openForWriting(file).error().code, EMLINK);
}

TEST_F(LinuxFilesTest, RootDoesNotReadAFileItselfThatHasFurtherNames) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.makeFile("file", "secret");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  EXPECT_EQ(queries.readFileItself(file, 10).value(), "secret");
  ASSERT_EQ(::link(file.c_str(), folder.path("second").c_str()), 0);
  EXPECT_EQ(queries.readFileItself(folder.path("second"), 10).error().code, EMLINK);
  AsUser::run(kNobody, [&] { EXPECT_EQ(queries.readFileItself(file, 10).value(), "secret"); });
}

TEST_F(LinuxFilesTest, RootOpensNothingThatMayHaveLostTheNameItWasOpenedBy) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.makeFile("name (deleted)");  // as the kernel tells of such a file
  EXPECT_EQ(changes.openForWriting(file).error().code, EMLINK);
  EXPECT_EQ(queries.readFileItself(file, 10).error().code, EMLINK);
}

TEST_F(LinuxFilesTest, WritingToAFullDiskIsAnError) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other.path("log")) << "old";
  auto writable = changes.openForWriting(other.path("log"));
  ASSERT_TRUE(writable.ok());
  EXPECT_EQ(writable.value()->write(std::string(2 << 20, 'x')).error().code, ENOSPC);
}

/// Fewer descriptors than usual, for its scope.
class FewDescriptors {
 public:
  FewDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &usual_);
    const rlimit few{256, usual_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  }
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &usual_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit usual_{};
};

TEST_F(LinuxFilesTest, RemovesATreeThatIsDeeperThanDescriptorsCanBeHad) {
  constexpr int kDepth = 600;
  const std::string name(200, 'd');  // its path is longer than a call would take
  UniqueDescriptor inside(::open(folder.path().c_str(), O_PATH | O_DIRECTORY));
  for (int depth = 0; depth < kDepth; ++depth) {
    ASSERT_EQ(::mkdirat(inside.get(), name.c_str(), 0755), 0);
    inside.reset(::openat(inside.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
    if (depth % 100 == 0) {
      ASSERT_EQ(::symlinkat("/", inside.get(), "link"), 0);
    }
  }
  inside.reset();
  const FewDescriptors limit;
  const auto removed = changes.remove(folder.path(name));
  EXPECT_TRUE(removed.ok()) << (removed ? "" : std::strerror(removed.error().code));
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(LinuxFilesTest, WhatCannotBeRemovedIsPassedOverAndNamed) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  folder.makeFile("tree/a/file");
  folder.makeFile("tree/z/file");
  const SmallFileSystem busy(folder.path("tree/m"));
  if (!busy.isMounted()) GTEST_SKIP() << "cannot mount here";
  const auto removed = changes.remove(folder.path("tree"));
  ASSERT_FALSE(removed.ok());
  EXPECT_EQ(removed.error().code, EBUSY);
  EXPECT_THAT(namesIn(folder.path("tree")), ElementsAre("m"));
}

TEST_F(LinuxFilesTest, NothingThatHoldsEverythingIsRemoved) {
  folder.makeFile("file");
  for (const char* const name : {".", "..", "../inner/.", "../."}) {
    fs::create_directories(folder.path("inner"));
    EXPECT_EQ(changes.remove(folder.path("inner/") + name).error().code, EINVAL);
  }
  EXPECT_EQ(changes.remove("/").error().code, EINVAL);
  EXPECT_TRUE(fs::exists(folder.path("file")));
}

TEST_F(LinuxFilesTest, WhoMayNotGiveFilesAwayReplacesThemAllTheSame) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  const std::string file = folder.makeFile("file", "old");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  ASSERT_EQ(::chown(file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(::chmod(file.c_str(), 0664), 0);
  AsUser::run(kNobody, [&] { EXPECT_TRUE(changes.writeAtomically(file, "new").ok()); });
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(statusOf(file).st_uid, kNobody);
  EXPECT_EQ(modeOf(file), 0644U) << "another group has no more rights than everybody";
}

/// Root in a home folder that belongs to somebody else.
class LinuxFilesAsRootTest : public LinuxFilesTest {
 protected:
  std::string home = folder.path("home");
  std::string elsewhere = folder.path("elsewhere");

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    fs::create_directories(home + "/Library");
    fs::create_directory(elsewhere);
    give(home);
    give(home + "/Library");
  }
  static void give(const std::string& path) { ASSERT_EQ(::lchown(path.c_str(), kNobody, 4321), 0); }
  /// The user swaps a folder for a link.
  void plantLink() {
    fs::create_directory_symlink(elsewhere, home + "/Library/Logs");
    give(home + "/Library/Logs");
  }
  static int reasonOf(const foundation::Result<void>& result) { return result ? 0 : result.error().code; }
};

TEST_F(LinuxFilesAsRootTest, NothingIsMadeThroughALinkOnTheWay) {
  plantLink();
  EXPECT_EQ(reasonOf(changes.createDirectory(home + "/Library/Logs/Vordenworks")), ELOOP);
  EXPECT_EQ(reasonOf(changes.createDirectory(home + "/Library/Logs/a/b")), ELOOP);
  EXPECT_NE(reasonOf(changes.createDirectory(home + "/Library/Logs")), 0);
  EXPECT_THAT(namesIn(elsewhere), IsEmpty());
}

TEST_F(LinuxFilesAsRootTest, NothingIsMovedThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "precious";
  const std::string mine = folder.makeFile("home/mine", "mine");
  EXPECT_EQ(reasonOf(changes.move(home + "/Library/Logs/shadow", home + "/taken")), ELOOP);
  EXPECT_EQ(reasonOf(changes.move(mine, home + "/Library/Logs/planted")), ELOOP);
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
  EXPECT_EQ(folder.read("home/mine"), "mine");
}

TEST_F(LinuxFilesAsRootTest, NothingIsTrashedWhereATrashIsALink) {
  const std::string file = folder.makeFile("home/Library/file", "x");
  fs::create_directory_symlink(elsewhere, home + "/.Trash");
  give(home + "/.Trash");
  EXPECT_EQ(reasonOf(changes.move(file, home + "/.Trash/file")), ELOOP);
  EXPECT_THAT(namesIn(elsewhere), IsEmpty());
  EXPECT_EQ(tests::TemporaryFolder::readAt(file), "x");
}

TEST_F(LinuxFilesAsRootTest, NothingIsRemovedThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "precious";
  EXPECT_EQ(reasonOf(changes.remove(home + "/Library/Logs/shadow")), ELOOP);
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
  EXPECT_EQ(reasonOf(changes.remove(home + "/Library/Logs")), 0) << "the link itself may go";
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
}

TEST_F(LinuxFilesAsRootTest, NothingIsWrittenThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "precious";
  EXPECT_EQ(reasonOf(changes.writeAtomically(home + "/Library/Logs/shadow", "x")), ELOOP);
  EXPECT_EQ(reasonOf(changes.writeAtomically(home + "/Library/Logs/new", "x")), ELOOP);
  EXPECT_EQ(changes.openForWriting(home + "/Library/Logs/shadow").error().code, ELOOP);
  EXPECT_EQ(tests::TemporaryFolder::readAt(elsewhere + "/shadow"), "precious");
  EXPECT_THAT(namesIn(elsewhere), ElementsAre("shadow"));
}

TEST_F(LinuxFilesAsRootTest, AFileItselfIsNotReadThroughALinkOnTheWay) {
  plantLink();
  std::ofstream(elsewhere + "/shadow") << "secret";
  EXPECT_EQ(queries.readFileItself(home + "/Library/Logs/shadow", 10).error().code, ELOOP);
  EXPECT_EQ(queries.readFileItself(elsewhere + "/shadow", 10).value(), "secret");
}

TEST_F(LinuxFilesAsRootTest, LinksThatOnlyRootCanHaveMadeAreFollowed) {
  ChangedRoot::run(folder.path(), [this] {
    fs::create_directory_symlink("/home", "/Users");
    EXPECT_TRUE(changes.writeAtomically("/Users/Library/file", "x").ok()) << "a link that is root's";
    EXPECT_TRUE(changes.createDirectory("/Users/Library/Logs").ok());
    EXPECT_TRUE(changes.move("/Users/Library/file", "/Users/Library/Logs/file").ok());
    EXPECT_TRUE(changes.openForWriting("/Users/Library/Logs/file").ok());
    EXPECT_TRUE(changes.remove("/Users/Library/Logs").ok());
    EXPECT_TRUE(changes.createDirectory("/Users").ok()) << "it leads to a folder";
  });
}

TEST_F(LinuxFilesAsRootTest, NewFoldersInSomebodysHomeAreTheirs) {
  const std::string logs = home + "/Library/Logs";
  ASSERT_TRUE(changes.createDirectory(logs + "/Vordenworks").ok());
  for (const std::string& made : {logs, logs + "/Vordenworks"}) {
    EXPECT_EQ(statusOf(made).st_uid, kNobody);
    EXPECT_EQ(statusOf(made).st_gid, 4321U);
    EXPECT_EQ(modeOf(made), 0755U);
  }
  ASSERT_TRUE(changes.createDirectory(elsewhere + "/new").ok());
  EXPECT_EQ(statusOf(elsewhere + "/new").st_uid, 0U);
}

TEST_F(LinuxFilesAsRootTest, NewFilesInSomebodysHomeAreTheirs) {
  ASSERT_TRUE(changes.writeAtomically(home + "/Library/new.plist", "x").ok());
  EXPECT_EQ(statusOf(home + "/Library/new.plist").st_uid, kNobody);
  EXPECT_EQ(statusOf(home + "/Library/new.plist").st_gid, 4321U);
  EXPECT_EQ(modeOf(home + "/Library/new.plist"), 0644U);
  ASSERT_TRUE(changes.writeAtomically(elsewhere + "/new.plist", "x").ok());
  EXPECT_EQ(statusOf(elsewhere + "/new.plist").st_uid, 0U);
}

TEST_F(LinuxFilesAsRootTest, WhatReplacesALinkInSomebodysHomeIsTheirs) {
  fs::create_symlink(elsewhere + "/absent", home + "/link");
  ASSERT_TRUE(changes.writeAtomically(home + "/link", "x").ok());
  EXPECT_EQ(statusOf(home + "/link").st_uid, kNobody);
}

TEST_F(LinuxFilesAsRootTest, AUserGoesOnWhereRootBegan) {
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  const std::string logs = home + "/Library/Logs/Vordenworks";
  ASSERT_TRUE(changes.createDirectory(logs).ok());
  ASSERT_TRUE(changes.writeAtomically(logs + "/Quillmend.1.log", "root's").ok());
  AsUser::run(kNobody, [&] {
    EXPECT_TRUE(changes.move(logs + "/Quillmend.1.log", logs + "/Quillmend.2.log").ok());
    EXPECT_TRUE(changes.writeAtomically(logs + "/Quillmend.1.log", "user's").ok());
  });
  EXPECT_THAT(namesIn(logs), UnorderedElementsAre("Quillmend.1.log", "Quillmend.2.log"));
}

}  // namespace
}  // namespace platform
