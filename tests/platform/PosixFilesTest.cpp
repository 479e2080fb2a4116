#include "platform/posix/PosixFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using ::testing::UnorderedElementsAre;

class PosixFilesTest : public ::testing::Test {
 protected:
  support::TemporaryFolder folder;
  PosixFileQueries queries;

  std::string makeFifo() {
    const std::string path = folder / "fifo";
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    return path;
  }
  /// Two links that lead to each other.
  std::string makeLoop() {
    fs::create_symlink("two", folder / "one");
    fs::create_symlink("one", folder / "two");
    return folder / "one";
  }
};

TEST_F(PosixFilesTest, ADanglingLinkAndALoopAreNothing) {
  fs::create_symlink("/nonexistent", folder / "dangling");
  EXPECT_FALSE(queries.exists(folder / "dangling"));
  EXPECT_FALSE(queries.exists(makeLoop()));
  EXPECT_FALSE(queries.isDirectory(folder / "one"));
  EXPECT_TRUE(queries.exists(folder.file("file")));
  EXPECT_TRUE(queries.exists(folder.path()));
}

TEST_F(PosixFilesTest, ADirectoryIsOneThroughALinkToo) {
  fs::create_directory_symlink(folder.path(), folder / "link");
  EXPECT_TRUE(queries.isDirectory(folder / "link"));
  EXPECT_FALSE(queries.isDirectory(folder.file("file")));
  EXPECT_FALSE(queries.isDirectory(folder / "absent"));
}

TEST_F(PosixFilesTest, AccessIsTheEffectiveUsers) {
  const std::string file = folder.file("file");
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
  folder.file(".hidden");
  folder.file("-dash \n");
  folder.file("\xFF\xFE");
  folder.file(std::string(255, 'x'));
  const auto names = queries.contentsOfDirectory(folder.path());
  ASSERT_TRUE(names.ok());
  EXPECT_THAT(names.value(), UnorderedElementsAre(".hidden", "-dash \n", "\xFF\xFE", std::string(255, 'x')));
}

TEST_F(PosixFilesTest, ListsNamesInTheOrderOfTheirBytes) {
  const std::vector<std::string> sorted = {"10", "9", "B", "_", "a", "b", "\xC3\xA4", "\xFF"};
  std::vector<std::string> shuffled;
  for (int number = 0; number < 200; ++number) shuffled.push_back("n" + std::to_string(number * 7919 % 200));
  shuffled.insert(shuffled.end(), sorted.rbegin(), sorted.rend());
  for (const std::string& name : shuffled) folder.file(name);
  const auto names = queries.contentsOfDirectory(folder.path());
  ASSERT_TRUE(names.ok());
  EXPECT_EQ(names.value().size(), shuffled.size());
  std::vector<std::string> others = names.value();
  std::erase_if(others, [](const std::string& name) { return name.starts_with('n'); });
  EXPECT_EQ(others, sorted);
  EXPECT_TRUE(std::is_sorted(names.value().begin(), names.value().end()));
}

TEST_F(PosixFilesTest, ListingWhatIsNoFolderFails) {
  EXPECT_EQ(queries.contentsOfDirectory(folder.file("file")).error().code, ENOTDIR);
  EXPECT_EQ(queries.contentsOfDirectory(folder / "absent").error().code, ENOENT);
  EXPECT_EQ(queries.contentsOfDirectory(makeFifo()).error().code, ENOTDIR);
}

TEST_F(PosixFilesTest, AFilesStateTellsWhetherItWasWrittenOrReplaced) {
  const std::string file = folder.file("file", "one");
  const auto before = queries.state(file);
  ASSERT_TRUE(before);
  EXPECT_EQ(before->size, 3U);
  EXPECT_EQ(before->owner, ::geteuid());
  EXPECT_EQ(queries.state(file), before);
  fs::create_symlink("file", folder / "link");
  EXPECT_EQ(queries.state(folder / "link"), before) << "of what it leads to";
  folder.file("file", "longer");
  EXPECT_NE(queries.state(file), before);
  folder.file("other", "one");
  fs::last_write_time(folder / "other", fs::last_write_time(file));
  fs::rename(folder / "other", file);
  EXPECT_NE(queries.state(file), before);
  folder.file("file", "two");
  const auto then = queries.state(file);
  fs::last_write_time(file, fs::last_write_time(file) + std::chrono::nanoseconds(1));
  EXPECT_NE(queries.state(file), then);
  EXPECT_EQ(queries.state(folder / "missing"), std::nullopt);
}

TEST_F(PosixFilesTest, ALinkIsFollowedToItsEndWhetherOrNotAnythingIsThere) {
  const std::string file = folder.file("file", "one");
  fs::create_directory(folder / "sub");
  fs::create_symlink("../second", folder / "sub/first");
  fs::create_symlink(file, folder / "second");
  fs::create_symlink("nothing", folder / "dangling");
  EXPECT_EQ(queries.linkTarget(file).value(), file);
  EXPECT_EQ(queries.linkTarget(folder / "missing").value(), folder / "missing");
  EXPECT_EQ(queries.linkTarget(folder / "sub/first").value(), file);
  EXPECT_EQ(queries.linkTarget(folder / "dangling").value(), folder / "nothing");
  EXPECT_EQ(queries.linkTarget(makeLoop()).error().code, ELOOP);
  EXPECT_EQ(queries.linkTarget(file + "/below").error().code, ENOTDIR);
}

TEST_F(PosixFilesTest, ReadsEveryByteUpToTheLimit) {
  const std::string bytes("a\0b\xFF", 4);
  const std::string file = folder.file("file", bytes);
  EXPECT_EQ(queries.readFile(file, 4).value(), bytes);
  EXPECT_EQ(queries.readFile(file, 3).error().code, EFBIG);
  EXPECT_EQ(queries.readFile(folder.file("empty"), 0).value(), "");
}

TEST_F(PosixFilesTest, ReadsAFileThatHidesItsSize) {
  EXPECT_NE(queries.readFile("/proc/self/status", 1 << 20).value().find("Name:"), std::string::npos);
}

TEST_F(PosixFilesTest, AHugeFileIsRefusedWithoutBeingRead) {
  const std::string file = folder.file("huge");
  ASSERT_EQ(::truncate(file.c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(queries.readFile(file, 64 << 20).error().code, EFBIG);
}

TEST_F(PosixFilesTest, ReadsNothingButRegularFilesAndNeverBlocks) {
  EXPECT_EQ(queries.readFile(makeFifo(), 10).error().code, EINVAL);
  EXPECT_EQ(queries.readFile(folder.path(), 10).error().code, EINVAL);
  EXPECT_EQ(queries.readFile("/dev/zero", 10).error().code, EINVAL);
  EXPECT_EQ(queries.readFile(makeLoop(), 10).error().code, ELOOP);
  EXPECT_EQ(queries.readFile(folder / "absent", 10).error().code, ENOENT);
}

TEST_F(PosixFilesTest, AnUnreadableFileIsAnError) {
  if (::geteuid() != 0) GTEST_SKIP() << "the change of account needs root";
  const std::string file = folder.file("file", "secret");
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
  const std::string file = folder.file("file", "content");
  fs::create_symlink(file, folder / "link");
  EXPECT_EQ(queries.readFileItself(file, 10).value(), "content");
  EXPECT_EQ(queries.readFileItself(folder / "link", 10).error().code, ELOOP);
  EXPECT_EQ(queries.readFile(folder / "link", 10).value(), "content");
}

}  // namespace
}  // namespace platform
