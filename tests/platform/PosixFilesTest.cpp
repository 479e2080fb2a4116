#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/platform/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using ::testing::UnorderedElementsAre;

class PosixFilesTest : public ::testing::Test {
 protected:
  tests::TemporaryFolder folder;
  PosixFileQueries queries;

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

TEST_F(PosixFilesTest, ReadingTheFileItselfFollowsNoLink) {
  const std::string file = folder.makeFile("file", "content");
  fs::create_symlink(file, folder.path("link"));
  EXPECT_EQ(queries.readFileItself(file, 10).value(), "content");
  EXPECT_EQ(queries.readFileItself(folder.path("link"), 10).error().code, ELOOP);
  EXPECT_EQ(queries.readFile(folder.path("link"), 10).value(), "content");
}

}  // namespace
}  // namespace platform
