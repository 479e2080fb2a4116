#include "platform/linux/support/verbs/FileVerbs.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <iterator>

#include "tests/helpers/SystemCallCount.h"
#include "tests/support/PathStatus.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using foundation::Result;
using support::runProgram;
using ::testing::AnyOf;

constexpr uid_t kAlice = 4201;

class FileVerbsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string at(const std::string& place) const { return folder_ / place; }

  static int codeOf(const Result<void>& result) { return result ? 0 : result.error().code; }

  std::string make(const std::string& place, const std::string& content = "content") const {
    return folder_.file(place, content);
  }

  [[nodiscard]] std::string read(const std::string& place) const { return support::contentOf(at(place)); }

  [[nodiscard]] struct stat status(const std::string& place) const { return support::statusAt(at(place)); }

  void own(const std::string& place) const { ASSERT_EQ(::lchown(at(place).c_str(), kAlice, kAlice), 0); }

  support::TemporaryFolder folder_;
};

using RemovePathTest = FileVerbsTest;

TEST_F(RemovePathTest, TakesAFolderWithAllThatIsInIt) {
  make("tree/sub/file");
  EXPECT_EQ(codeOf(removePath(at("tree"))), 0);
  EXPECT_FALSE(fs::exists(at("tree")));
}

TEST_F(RemovePathTest, TakesALinkAndNotWhatItLeadsTo) {
  make("kept/file");
  fs::create_directory_symlink(at("kept"), at("link"));
  EXPECT_EQ(codeOf(removePath(at("link"))), 0);
  EXPECT_FALSE(fs::is_symlink(at("link")));
  EXPECT_EQ(read("kept/file"), "content");
}

TEST_F(RemovePathTest, HasNothingToDoWhereNothingIs) {
  make("file");
  EXPECT_EQ(codeOf(removePath(at("missing"))), 0);
  EXPECT_EQ(codeOf(removePath(at("missing/below"))), 0);
  EXPECT_EQ(codeOf(removePath(at("file/below"))), 0);
}

TEST_F(RemovePathTest, RefusesTheTopAndTheFolderItself) {
  for (const char* path : {"/", "/tmp/.", "/tmp/..", "."})
    EXPECT_EQ(codeOf(removePath(path)), EINVAL) << path;
}

using MakePathTest = FileVerbsTest;

TEST_F(MakePathTest, MakesAllThatIsMissingAndIsDoneWhereNothingIs) {
  for (int time = 0; time < 2; ++time) EXPECT_EQ(codeOf(makePath(at("a/b/c"))), 0);
  EXPECT_TRUE(fs::is_directory(at("a/b/c")));
}

TEST_F(MakePathTest, TakesPointsOnTheWayForWhatTheyAreOnceTheFoldersAreMade) {
  EXPECT_EQ(codeOf(makePath(at("x/./y/../z/."))), 0);
  EXPECT_TRUE(fs::is_directory(at("x/y")));
  EXPECT_TRUE(fs::is_directory(at("x/z")));
  EXPECT_EQ(codeOf(makePath(at("x/file/../y"))), 0);
  make("file");
  EXPECT_EQ(codeOf(makePath(at("file/../new"))), ENOTDIR);
}

TEST_F(MakePathTest, RefusesAPathThatNoProgramCouldOpen) {
  std::string longest = at("deep");
  while (longest.size() < PATH_MAX) longest += "/deeper";
  EXPECT_EQ(codeOf(makePath(longest)), ENAMETOOLONG);
  EXPECT_FALSE(fs::exists(at("deep")));
}

TEST_F(MakePathTest, DoesNotReplaceAFile) {
  make("file");
  EXPECT_EQ(codeOf(makePath(at("file"))), ENOTDIR);
  EXPECT_EQ(codeOf(makePath(at("file/below"))), ENOTDIR);
  EXPECT_EQ(read("file"), "content");
}

TEST_F(MakePathTest, TakesALinkToNothingForWhatItIs) {
  fs::create_symlink("missing", at("link"));
  EXPECT_THAT(codeOf(makePath(at("link"))), AnyOf(EEXIST, ELOOP));
  EXPECT_THAT(codeOf(makePath(at("link/below"))), AnyOf(EEXIST, ELOOP));
  EXPECT_FALSE(fs::exists(at("missing")));
}

TEST_F(MakePathTest, TakesManyPointsForTheFoldersThatTheyLeadTo) {
  const std::string here = "../" + fs::path(folder_.path()).filename().string();
  EXPECT_EQ(codeOf(makePath(at("new/../" + here + "/a/../b/../" + here + "/c"))), 0);
  for (const char* name : {"new", "a", "b", "c"}) EXPECT_TRUE(fs::is_directory(at(name))) << name;
}

TEST_F(MakePathTest, BeginsAPathWithoutASlashInTheCurrentFolder) {
  const fs::path before = fs::current_path();
  fs::create_directory(at("here"));
  fs::current_path(at("here"));
  EXPECT_EQ(codeOf(makePath("a/b")), 0);
  EXPECT_EQ(codeOf(makePath("../beside/./c")), 0);
  EXPECT_EQ(codeOf(makePath(".")), 0);
  EXPECT_EQ(codeOf(makePath("..")), 0);
  EXPECT_NE(codeOf(makePath("")), 0);
  fs::current_path(before);
  EXPECT_TRUE(fs::is_directory(at("here/a/b")));
  EXPECT_TRUE(fs::is_directory(at("beside/c")));
}

using MovePathTest = FileVerbsTest;

TEST_F(MovePathTest, GivesAnItemItsNewName) {
  make("tree/file");
  EXPECT_EQ(codeOf(movePath(at("tree"), at("moved"))), 0);
  EXPECT_EQ(read("moved/file"), "content");
  EXPECT_FALSE(fs::exists(at("tree")));
}

TEST_F(MovePathTest, MovesIntoAFolderThatIsThere) {
  make("file");
  fs::create_directory(at("into"));
  EXPECT_EQ(codeOf(movePath(at("file"), at("into"))), 0);
  EXPECT_EQ(read("into/file"), "content");
}

TEST_F(MovePathTest, ReplacesAFileAndAnEmptyFolderButNoFullOne) {
  make("file", "new");
  make("old", "old");
  EXPECT_EQ(codeOf(movePath(at("file"), at("old"))), 0);
  EXPECT_EQ(read("old"), "new");
  make("tree/file");
  fs::create_directories(at("into/tree"));
  EXPECT_EQ(codeOf(movePath(at("tree"), at("into"))), 0);
  make("tree/file", "another");
  EXPECT_EQ(codeOf(movePath(at("tree"), at("into"))), ENOTEMPTY);
  EXPECT_EQ(read("into/tree/file"), "content");
  EXPECT_EQ(read("tree/file"), "another");
}

TEST_F(MovePathTest, DoesNotReplaceAFolderByAFile) {
  make("file");
  fs::create_directories(at("into/file"));
  EXPECT_EQ(codeOf(movePath(at("file"), at("into"))), EISDIR);
  EXPECT_EQ(read("file"), "content");
}

TEST_F(MovePathTest, SaysWhatIsMissing) {
  fs::create_directory(at("into"));
  EXPECT_EQ(codeOf(movePath(at("missing"), at("into"))), ENOENT);
  EXPECT_EQ(codeOf(movePath(make("file"), at("missing/into"))), ENOENT);
}

using CopyPathTest = FileVerbsTest;

TEST_F(CopyPathTest, CopiesAFolderWithModesTimesAndLinks) {
  make("tree/sub/file");
  fs::permissions(at("tree/sub/file"), fs::perms::owner_read);
  fs::create_symlink("sub/file", at("tree/link"));
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("copy"))), 0);
  EXPECT_EQ(read("copy/sub/file"), "content");
  EXPECT_EQ(status("copy/sub/file").st_mode & 07777U, 0400U);
  EXPECT_EQ(status("copy/sub/file").st_mtim.tv_nsec, status("tree/sub/file").st_mtim.tv_nsec);
  EXPECT_EQ(fs::read_symlink(at("copy/link")), "sub/file");
}

TEST_F(CopyPathTest, CopiesIntoAFolderThatIsThereAndAddsToOneOfThatName) {
  make("tree/sub/file", "new");
  make("tree/another");
  make("into/tree/sub/file", "old");
  make("into/tree/sub/kept", "kept");
  fs::permissions(at("tree/sub"), fs::perms::owner_all);
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("into"))), 0);
  EXPECT_EQ(read("into/tree/sub/file"), "new");
  EXPECT_EQ(read("into/tree/sub/kept"), "kept");
  EXPECT_EQ(read("into/tree/another"), "content");
  EXPECT_EQ(status("into/tree/sub").st_mode & 07777U, 0700U);
  EXPECT_EQ(status("into/tree/sub").st_mtim.tv_nsec, status("tree/sub").st_mtim.tv_nsec);
}

TEST_F(CopyPathTest, ReplacesAFileWithoutWritingToItsFurtherNames) {
  make("file", "new");
  make("outside", "old");
  fs::create_hard_link(at("outside"), at("target"));
  EXPECT_EQ(codeOf(copyPath(at("file"), at("target"))), 0);
  EXPECT_EQ(read("target"), "new");
  EXPECT_EQ(read("outside"), "old");
}

TEST_F(CopyPathTest, ReplacesNeitherAFolderByAFileNorAFileByAFolderAndCopiesTheRest) {
  make("tree/a/file");
  make("tree/b");
  make("tree/c", "new");
  make("into/tree/a", "kept");
  make("into/tree/b/kept", "kept");
  EXPECT_THAT(codeOf(copyPath(at("tree"), at("into"))), AnyOf(ENOTDIR, EISDIR));
  EXPECT_EQ(read("into/tree/a"), "kept");
  EXPECT_EQ(read("into/tree/b/kept"), "kept");
  EXPECT_EQ(read("into/tree/c"), "new");
  EXPECT_EQ(codeOf(copyPath(at("tree/b"), at("into/tree"))), EISDIR);
}

TEST_F(CopyPathTest, RefusesToCopyAFolderIntoItself) {
  make("tree/file");
  fs::create_directories(at("tree/tree/tree"));
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("tree"))), EINVAL);
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("tree/new"))), EINVAL);
  EXPECT_EQ(codeOf(copyPath(at("tree/file"), at("tree"))), EINVAL) << "the same file";
  EXPECT_EQ(read("tree/file"), "content");
}

TEST_F(CopyPathTest, LeavesNoFolderThatItGrewIn) {
  make("tree/file");
  make("into/tree/file", "old");
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("into"))), 0);
  for (const auto& entry : fs::recursive_directory_iterator(at("into"))) {
    EXPECT_FALSE(entry.path().filename().string().starts_with(".copying-")) << entry.path();
  }
}

/// In a folder of alice's.
class RootsFileVerbsTest : public FileVerbsTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: folders of somebody else's";
    fs::create_directories(at("home/sub"));
    make("outside/file");
    own("home");
    own("home/sub");
    fs::create_directory_symlink(at("outside"), at("home/link"));
    own("home/link");
  }
};

TEST_F(RootsFileVerbsTest, FollowNoLinkOfAUsersOnTheWay) {
  const std::string led = at("home/link/file");
  EXPECT_EQ(codeOf(removePath(led)), ELOOP);
  EXPECT_EQ(codeOf(makePath(at("home/link/new"))), ELOOP);
  EXPECT_EQ(codeOf(movePath(led, at("home/new"))), ELOOP);
  EXPECT_EQ(codeOf(copyPath(led, at("home/new"))), ELOOP);
  const std::string file = make("home/file");
  EXPECT_EQ(codeOf(movePath(file, at("home/link"))), ELOOP);
  EXPECT_EQ(codeOf(copyPath(file, at("home/link"))), ELOOP);
  EXPECT_EQ(codeOf(copyPath(file, at("home/link/new"))), ELOOP);
  EXPECT_EQ(std::distance(fs::directory_iterator(at("outside")), {}), 1);
}

TEST_F(RootsFileVerbsTest, AFolderOfAnotherOwnersKeepsItsAttributes) {
  make("tree/sub/file");
  fs::create_directories(at("home/tree"));
  own("home/tree");
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("home"))), 0);
  EXPECT_EQ(status("home/tree").st_uid, kAlice);
  EXPECT_EQ(status("home/tree/sub").st_uid, 0U);
}

TEST_F(RootsFileVerbsTest, MakeFoldersOfRootsEvenWhereTheOwnerMayNot) {
  fs::permissions(at("home"), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(codeOf(makePath(at("home/new"))), 0);
  EXPECT_EQ(status("home/new").st_uid, 0U);
}

TEST_F(RootsFileVerbsTest, MakeFoldersThroughALinkThatRootAloneCanHaveMade) {
  ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
  ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
  ASSERT_EQ(::mount("none", "/mnt", "tmpfs", 0, "mode=0755"), 0);
  ASSERT_EQ(::mkdir("/mnt/folder", 0755), 0);
  ASSERT_EQ(::symlink("folder", "/mnt/link"), 0);
  ASSERT_EQ(::symlink("missing/deep", "/mnt/dangling"), 0);
  EXPECT_EQ(codeOf(makePath("/mnt/link/a/../b")), 0);
  EXPECT_EQ(codeOf(makePath("/mnt/dangling")), EEXIST);
  EXPECT_EQ(codeOf(makePath("/mnt/dangling/a")), EEXIST);
  EXPECT_TRUE(fs::is_directory("/mnt/folder/a") && fs::is_directory("/mnt/folder/b"));
  EXPECT_FALSE(fs::exists("/mnt/missing"));
  ::umount2("/mnt", MNT_DETACH);
}

TEST_F(RootsFileVerbsTest, MakeFoldersOfMode0755LessTheMask) {
  const mode_t before = ::umask(0);
  EXPECT_EQ(codeOf(makePath(at("home/a/b"))), 0);
  ::umask(027);
  EXPECT_EQ(codeOf(makePath(at("home/c/d"))), 0);
  ::umask(before);
  for (const char* place : {"home/a", "home/a/b"}) EXPECT_EQ(status(place).st_mode & 07777U, 0755U) << place;
  for (const char* place : {"home/c", "home/c/d"}) EXPECT_EQ(status(place).st_mode & 07777U, 0750U) << place;
}

TEST_F(RootsFileVerbsTest, MoveToAnotherVolumeAndReplaceAFileThere) {
  ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
  ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
  ASSERT_EQ(::mount("none", at("home/sub").c_str(), "tmpfs", 0, nullptr), 0);
  make("file", "new");
  make("home/sub/file", "old");
  EXPECT_EQ(codeOf(movePath(at("file"), at("home/sub"))), 0);
  EXPECT_EQ(read("home/sub/file"), "new");
  EXPECT_FALSE(fs::exists(at("file")));
  ::umount2(at("home/sub").c_str(), MNT_DETACH);
}

/// The programs as the privileged verbs call them.
class FileVerbProgramsTest : public FileVerbsTest {
 protected:
  static int run(const std::string& verb, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::string(SHARED_SUPPORT) + "/" + verb);
    return runProgram(arguments).status;
  }
};

TEST_F(FileVerbProgramsTest, TakeTheCommandLinesOfThePrivilegedVerbs) {
  EXPECT_EQ(run("mkdir", {"-p", at("a/b")}), 0);
  make("a/b/file");
  EXPECT_EQ(run("cp", {"-f", "-p", "-R", at("a"), at("c")}), 0);
  EXPECT_EQ(read("c/b/file"), "content");
  EXPECT_EQ(run("mv", {"-f", at("c/b/file"), at("moved")}), 0);
  EXPECT_EQ(read("moved"), "content");
  EXPECT_EQ(run("rm", {"-Rdf", at("a")}), 0);
  EXPECT_EQ(run("rm", {"-R", "-f", at("c")}), 0);
  EXPECT_FALSE(fs::exists(at("a")) || fs::exists(at("c")));
}

TEST_F(FileVerbProgramsTest, TakeNoOthers) {
  const std::string file = make("file");
  EXPECT_EQ(run("mkdir", {at("new")}), 64);
  EXPECT_EQ(run("mkdir", {"-p", "-m", at("new")}), 64);
  EXPECT_EQ(run("cp", {"-R", file, at("new")}), 64);
  EXPECT_EQ(run("cp", {"-f", "-p", "-R", file}), 64);
  EXPECT_EQ(run("mv", {file, at("new")}), 64);
  EXPECT_EQ(run("mv", {"-f", file, at("new"), at("newer")}), 64);
  EXPECT_EQ(run("rm", {"-f", file}), 64);
  EXPECT_EQ(run("rm", {"-Rf"}), 64);
  EXPECT_EQ(run("rm", {}), 64);
  EXPECT_EQ(read("file"), "content");
  EXPECT_FALSE(fs::exists(at("new")));
}

TEST_F(FileVerbProgramsTest, TakeAPathThatLooksLikeAnOptionAfterTwoDashes) {
  make("-f");
  const fs::path before = fs::current_path();
  fs::current_path(folder_.path());
  EXPECT_EQ(run("rm", {"-Rf", "--", "-f"}), 0);
  fs::current_path(before);
  EXPECT_FALSE(fs::exists(at("-f")));
}

TEST_F(FileVerbProgramsTest, MakeFoldersInTimeInProportionToTheirNumber) {
  const auto callsFor = [this](const std::string& name, int levels) {
    std::string path = at(name);
    for (int level = 1; level < levels; ++level) path += "/a";
    const auto counted = helpers::countSystemCalls({std::string(SHARED_SUPPORT) + "/mkdir", "-p", path});
    EXPECT_EQ(counted.exitStatus, 0);
    EXPECT_TRUE(fs::is_directory(path));
    return counted.systemCalls;
  };
  const long once = callsFor("once", 200);
  EXPECT_LE(callsFor("twice", 400), 2 * once);
}

TEST_F(FileVerbProgramsTest, SayWhatCouldNotBeDone) {
  EXPECT_EQ(run("mv", {"-f", at("missing"), at("new")}), 1);
  EXPECT_EQ(run("rm", {"-Rdf", "/"}), 1);
}

}  // namespace
}  // namespace platform
