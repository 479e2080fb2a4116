#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "tests/platform/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
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

class PosixFilesTest : public ::testing::Test {
 protected:
  tests::TemporaryFolder folder;
  PosixFileQueries queries;
  PosixFileChanges changes;

  std::string makeFifo() {
    const std::string path = folder.path("fifo");
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    return path;
  }
  /// Two links that lead to each other.
  std::string makeLoop() {
    fs::create_symlink("two", folder.path("one"));
    fs::create_symlink("one", folder.path("two"));
    return folder.path("one");
  }
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

TEST_F(PosixFilesTest, ADanglingLinkAndALoopAreNothing) {
  fs::create_symlink("/nonexistent", folder.path("dangling"));
  EXPECT_FALSE(queries.exists(folder.path("dangling")));
  EXPECT_FALSE(queries.exists(makeLoop()));
  EXPECT_FALSE(queries.isDirectory(folder.path("one")));
  EXPECT_TRUE(queries.exists(folder.makeFile("file")));
  EXPECT_TRUE(queries.exists(folder.path()));
}

TEST_F(PosixFilesTest, ADirectoryIsOneThroughALinkToo) {
  fs::create_directory_symlink(folder.path(), folder.path("link"));
  EXPECT_TRUE(queries.isDirectory(folder.path("link")));
  EXPECT_FALSE(queries.isDirectory(folder.makeFile("file")));
  EXPECT_FALSE(queries.isDirectory(folder.path("absent")));
}

TEST_F(PosixFilesTest, AccessIsTheEffectiveUsers) {
  const std::string file = folder.makeFile("file");
  ::chmod(file.c_str(), 0600);
  EXPECT_TRUE(queries.isAccessible(file, Access::read));
  EXPECT_TRUE(queries.isAccessible(file, Access::write));
  EXPECT_FALSE(queries.isAccessible(file, Access::execute));
  ::chmod(file.c_str(), 0700);
  EXPECT_TRUE(queries.isAccessible(file, Access::execute));
  if (::geteuid() != 0) GTEST_SKIP() << "the change of account needs root";
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(::seteuid(65534), 0);
  const bool readable = queries.isAccessible(file, Access::read);
  const bool elsewhere = queries.isAccessible(folder.path(), Access::execute);
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_FALSE(readable);
  EXPECT_TRUE(elsewhere);
}

TEST_F(PosixFilesTest, ListsNamesOfAnyBytes) {
  folder.makeFile(".hidden");
  folder.makeFile("-dash \n");
  folder.makeFile("\xFF\xFE");
  folder.makeFile(std::string(255, 'x'));
  const auto names = queries.contentsOfDirectory(folder.path());
  ASSERT_TRUE(names.ok());
  EXPECT_THAT(names.value(), UnorderedElementsAre(".hidden", "-dash \n", "\xFF\xFE", std::string(255, 'x')));
}

TEST_F(PosixFilesTest, ListsNamesInTheOrderOfTheirBytes) {
  const std::vector<std::string> sorted = {"10", "9", "B", "_", "a", "b", "\xC3\xA4", "\xFF"};
  std::vector<std::string> shuffled;
  for (int number = 0; number < 200; ++number) shuffled.push_back("n" + std::to_string(number * 7919 % 200));
  shuffled.insert(shuffled.end(), sorted.rbegin(), sorted.rend());
  for (const std::string& name : shuffled) folder.makeFile(name);
  const auto names = queries.contentsOfDirectory(folder.path());
  ASSERT_TRUE(names.ok());
  EXPECT_EQ(names.value().size(), shuffled.size());
  std::vector<std::string> others = names.value();
  std::erase_if(others, [](const std::string& name) { return name.starts_with('n'); });
  EXPECT_EQ(others, sorted);
  EXPECT_TRUE(std::is_sorted(names.value().begin(), names.value().end()));
}

TEST_F(PosixFilesTest, ListingWhatIsNoFolderFails) {
  EXPECT_EQ(queries.contentsOfDirectory(folder.makeFile("file")).error().code, ENOTDIR);
  EXPECT_EQ(queries.contentsOfDirectory(folder.path("absent")).error().code, ENOENT);
  EXPECT_EQ(queries.contentsOfDirectory(makeFifo()).error().code, ENOTDIR);
}

TEST_F(PosixFilesTest, ReadsEveryByteUpToTheLimit) {
  const std::string bytes("a\0b\xFF", 4);
  const std::string file = folder.makeFile("file", bytes);
  EXPECT_EQ(queries.readFile(file, 4).value(), bytes);
  EXPECT_EQ(queries.readFile(file, 3).error().code, EFBIG);
  EXPECT_EQ(queries.readFile(folder.makeFile("empty"), 0).value(), "");
}

TEST_F(PosixFilesTest, ReadsAFileThatHidesItsSize) {
  EXPECT_NE(queries.readFile("/proc/self/status", 1 << 20).value().find("Name:"), std::string::npos);
}

TEST_F(PosixFilesTest, AHugeFileIsRefusedWithoutBeingRead) {
  const std::string file = folder.makeFile("huge");
  ASSERT_EQ(::truncate(file.c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(queries.readFile(file, 64 << 20).error().code, EFBIG);
}

TEST_F(PosixFilesTest, ReadsNothingButRegularFilesAndNeverBlocks) {
  EXPECT_EQ(queries.readFile(makeFifo(), 10).error().code, EINVAL);
  EXPECT_EQ(queries.readFile(folder.path(), 10).error().code, EINVAL);
  EXPECT_EQ(queries.readFile("/dev/zero", 10).error().code, EINVAL);
  EXPECT_EQ(queries.readFile(makeLoop(), 10).error().code, ELOOP);
  EXPECT_EQ(queries.readFile(folder.path("absent"), 10).error().code, ENOENT);
}

TEST_F(PosixFilesTest, AnUnreadableFileIsAnError) {
  if (::geteuid() != 0) GTEST_SKIP() << "the change of account needs root";
  const std::string file = folder.makeFile("file", "secret");
  ::chmod(file.c_str(), 0600);
  ::chmod(folder.path().c_str(), 0755);
  ASSERT_EQ(::seteuid(65534), 0);
  const auto bytes = queries.readFile(file, 10);
  ASSERT_EQ(::seteuid(0), 0);
  ASSERT_FALSE(bytes.ok());
  EXPECT_EQ(bytes.error().code, EACCES);
  EXPECT_EQ(bytes.error().localizedDescription(), file + ": Permission denied");
}

TEST_F(PosixFilesTest, CreatesTheFoldersAboveToo) {
  EXPECT_TRUE(changes.createDirectory(folder.path("a/b/c/")).ok());
  EXPECT_TRUE(fs::is_directory(folder.path("a/b/c")));
  EXPECT_TRUE(changes.createDirectory(folder.path("a/b")).ok());
}

TEST_F(PosixFilesTest, AFolderCannotBeMadeWhereAFileIs) {
  folder.makeFile("file");
  fs::create_symlink("/nonexistent/x", folder.path("dangling"));
  EXPECT_EQ(changes.createDirectory(folder.path("file")).error().code, EEXIST);
  EXPECT_EQ(changes.createDirectory(folder.path("file/below")).error().code, ENOTDIR);
  EXPECT_EQ(changes.createDirectory(folder.path("dangling")).error().code, EEXIST);
  EXPECT_EQ(changes.createDirectory("").error().code, ENOENT);
}

TEST_F(PosixFilesTest, MovesWithinAFileSystem) {
  folder.makeFile("from/file", "x");
  EXPECT_TRUE(changes.move(folder.path("from/"), folder.path("to")).ok());
  EXPECT_EQ(folder.read("to/file"), "x");
  EXPECT_FALSE(fs::exists(folder.path("from")));
}

TEST_F(PosixFilesTest, MovingNeverReplacesAnything) {
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

TEST_F(PosixFilesTest, MovingALinkMovesTheLink) {
  fs::create_symlink("/nonexistent", folder.path("link"));
  EXPECT_TRUE(changes.move(folder.path("link"), folder.path("moved")).ok());
  EXPECT_EQ(fs::read_symlink(folder.path("moved")), "/nonexistent");
}

TEST_F(PosixFilesTest, AMoveThatCannotBeMadeSaysWhy) {
  EXPECT_EQ(changes.move(folder.path("absent"), folder.path("to")).error().code, ENOENT);
  EXPECT_EQ(changes.move(folder.makeFile("file"), folder.path("absent/to")).error().code, ENOENT);
  fs::create_directory(folder.path("outer"));
  EXPECT_EQ(changes.move(folder.path("outer"), folder.path("outer/inner")).error().code, EINVAL);
}

TEST_F(PosixFilesTest, AMoveToAnotherFileSystemKeepsEverything) {
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

TEST_F(PosixFilesTest, AMoveThatDoesNotFitLeavesEverythingAsItWas) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  folder.makeFile("from/small", "x");
  folder.makeFile("from/big", std::string(2 << 20, 'x'));
  EXPECT_EQ(changes.move(folder.path("from"), other.path("to")).error().code, ENOSPC);
  EXPECT_THAT(namesIn(other.path("")), IsEmpty());
  EXPECT_THAT(namesIn(folder.path("from")), UnorderedElementsAre("small", "big"));
}

TEST_F(PosixFilesTest, AMoveToAnotherFileSystemReplacesNothingEither) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other.path("to")) << "old";
  EXPECT_FALSE(changes.move(folder.makeFile("from", "new"), other.path("to")).ok());
  EXPECT_EQ(tests::TemporaryFolder::readAt(other.path("to")), "old");
  EXPECT_EQ(folder.read("from"), "new");
  EXPECT_THAT(namesIn(other.path("")), ElementsAre("to"));
}

TEST_F(PosixFilesTest, RemovesWholeFoldersAndLinksThemselves) {
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

TEST_F(PosixFilesTest, WritesANewFileWithTheUsualMode) {
  const mode_t before = ::umask(0027);
  EXPECT_TRUE(changes.writeAtomically(folder.path("file"), "content").ok());
  ::umask(before);
  EXPECT_EQ(folder.read("file"), "content");
  EXPECT_EQ(modeOf(folder.path("file")), 0640U);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(PosixFilesTest, ReplacingAFileKeepsItsOwnerAndMode) {
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

TEST_F(PosixFilesTest, ReplacingAFileDoesNotTakeSetIdBitsOver) {
  const std::string file = folder.makeFile("file", "old");
  ASSERT_EQ(::chmod(file.c_str(), 06755), 0);
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(modeOf(file), 0755U);
}

TEST_F(PosixFilesTest, APlantedLinkIsReplacedAndWhatItLeadsToUntouched) {
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

TEST_F(PosixFilesTest, AFolderIsNotReplacedByAFile) {
  fs::create_directory(folder.path("sub"));
  EXPECT_EQ(changes.writeAtomically(folder.path("sub"), "x").error().code, EISDIR);
  EXPECT_EQ(changes.writeAtomically(folder.path("absent/file"), "x").error().code, ENOENT);
  EXPECT_EQ(changes.writeAtomically("/", "x").error().code, EISDIR);
  EXPECT_EQ(changes.writeAtomically("", "x").error().code, ENOENT);
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("sub"));
}

TEST_F(PosixFilesTest, ANameOfTheGreatestLengthCanBeReplaced) {
  const std::string file = folder.makeFile(std::string(255, 'x'), "old");
  EXPECT_TRUE(changes.writeAtomically(file, "new").ok());
  EXPECT_EQ(tests::TemporaryFolder::readAt(file), "new");
}

TEST_F(PosixFilesTest, AFullDiskLeavesTheOldFileAndNoTrace) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other.path("file")) << "old";
  EXPECT_EQ(changes.writeAtomically(other.path("file"), std::string(2 << 20, 'x')).error().code, ENOSPC);
  EXPECT_EQ(tests::TemporaryFolder::readAt(other.path("file")), "old");
  EXPECT_THAT(namesIn(other.path("")), ElementsAre("file"));
}

TEST_F(PosixFilesTest, WritingFromManyThreadsAlwaysLeavesOneWholeFile) {
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

TEST_F(PosixFilesTest, OpensAnExistingFileAtItsStartWithoutCuttingIt) {
  const std::string file = folder.makeFile("file", "abcdef");
  auto writable = changes.openForWriting(file);
  ASSERT_TRUE(writable.ok());
  EXPECT_TRUE(writable.value()->write("XY").ok());
  EXPECT_EQ(folder.read("file"), "XYcdef");
  EXPECT_TRUE(writable.value()->seekToEnd().ok());
  EXPECT_TRUE(writable.value()->write("Z").ok());
  EXPECT_EQ(folder.read("file"), "XYcdefZ");
}

TEST_F(PosixFilesTest, OpeningForWritingMakesNothingFollowsNothingAndNeverBlocks) {
  const std::string file = folder.makeFile("file");
  fs::create_symlink(file, folder.path("link"));
  EXPECT_EQ(changes.openForWriting(folder.path("absent")).error().code, ENOENT);
  EXPECT_EQ(changes.openForWriting(folder.path("link")).error().code, ELOOP);
  EXPECT_EQ(changes.openForWriting(makeFifo()).error().code, EINVAL);
  EXPECT_EQ(changes.openForWriting(folder.path()).error().code, EINVAL);
  EXPECT_FALSE(fs::exists(folder.path("absent")));
}

TEST_F(PosixFilesTest, RootDoesNotWriteToAFileThatHasFurtherNames) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = folder.makeFile("file");
  ASSERT_EQ(::link(file.c_str(), folder.path("second").c_str()), 0);
  EXPECT_EQ(changes.openForWriting(file).error().code, EMLINK);
}

TEST_F(PosixFilesTest, WritingToAFullDiskIsAnError) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const SmallFileSystem other(folder.path("other"));
  if (!other.isMounted()) GTEST_SKIP() << "cannot mount here";
  std::ofstream(other.path("log")) << "old";
  auto writable = changes.openForWriting(other.path("log"));
  ASSERT_TRUE(writable.ok());
  EXPECT_EQ(writable.value()->write(std::string(2 << 20, 'x')).error().code, ENOSPC);
}

}  // namespace
}  // namespace platform
