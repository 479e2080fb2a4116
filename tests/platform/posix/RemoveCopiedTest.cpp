// What happens to originals between their copy and their removal.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/posix/TreeCopy.h"
#include "tests/support/FailingCall.h"
#include "tests/support/NamelessFile.h"
#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::FailingCall;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

constexpr const char* kChanged = ": changed or added since, left in place";
constexpr const char* kInTheWay = ": cannot be removed, though there is a copy of it";

/// With a record in memory and one that begins to be written at once. That a move is flushed to the disk is
/// nothing of its removal, and would take its time on the disk that all tests use.
class RemoveCopiedTest : public ::testing::TestWithParam<std::size_t> {
 protected:
  static CopyOptions options() {
    CopyOptions options = optionsForMoving();
    options.flush = Flush::none;
    options.recordInMemory = GetParam();
    return options;
  }
  /// tree/a, tree/link, tree/none/, tree/sub/b, tree/sub/c, tree/sub/deep/d
  void makeTree() {
    for (const char* place : {"tree/a", "tree/sub/b", "tree/sub/c", "tree/sub/deep/d"})
      ground_.file(place, place);
    static_cast<void>(ground_.folder("tree/none"));
    fs::create_symlink("a", ground_ / "tree/link");
  }
  [[nodiscard]] CopyRecord copy(Check check = Check::compare) {
    CopyOptions checked = options();
    checked.check = check;
    fs::remove_all(ground_ / "copy");
    auto copied = copyItem(folder_.get(), "tree", folder_.get(), "copy", "tree", checked);
    EXPECT_TRUE(copied) << copied.error().description;
    return copied ? std::move(copied).value() : CopyRecord();
  }
  /// Answers 0 or the reason.
  int remove(const CopyRecord& record) {
    kept_.clear();
    const auto removed = removeCopied(
        folder_.get(), record, "tree",
        [this](const std::string& path, const std::string& why) { kept_.push_back(path + ": " + why); });
    return removed ? 0 : removed.error().code;
  }
  /// All that is left, folders with a slash behind.
  [[nodiscard]] std::vector<std::string> left() const {
    std::vector<std::string> all;
    if (!fs::exists(ground_ / "tree")) return all;
    for (const auto& entry : fs::recursive_directory_iterator(ground_ / "tree")) {
      all.push_back(entry.path().string().substr(ground_.path().size() + 1));
    }
    return all;
  }
  /// A place and the folders that it is in, up to "tree", and what is told of them.
  static std::vector<std::string> wayTo(fs::path place) {
    std::vector<std::string> way;
    for (; place != "tree"; place = place.parent_path()) way.push_back(place);
    return way;
  }
  static std::vector<std::string> toldOf(const fs::path& place) {
    std::vector<std::string> told = {place.string() + kChanged};
    for (const std::string& folder : wayTo(place.parent_path())) told.push_back(folder + kInTheWay);
    told.push_back(std::string("tree") + kInTheWay);
    return told;
  }

  TemporaryFolder ground_;
  UniqueDescriptor folder_{::open(ground_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  std::vector<std::string> kept_;
};

INSTANTIATE_TEST_SUITE_P(InMemoryAndInAFile, RemoveCopiedTest, ::testing::Values(kRecordInMemory, 1),
                         [](const auto& form) { return form.param == 1 ? "InAFile" : "InMemory"; });

TEST_P(RemoveCopiedTest, WhatIsUnchangedGoes) {
  makeTree();
  EXPECT_EQ(remove(copy()), 0);
  EXPECT_THAT(kept_, IsEmpty());
  EXPECT_FALSE(fs::exists(ground_ / "tree"));
}

TEST_P(RemoveCopiedTest, WhereverAFileChangesItStaysWithItsFoldersAlone) {
  for (const char* place : {"tree/a", "tree/sub/b", "tree/sub/c", "tree/sub/deep/d"}) {
    SCOPED_TRACE(place);
    makeTree();
    const CopyRecord record = copy();
    ground_.file(place, "something else");
    EXPECT_EQ(remove(record), EBUSY);
    EXPECT_THAT(kept_, UnorderedElementsAreArray(toldOf(place)));
    EXPECT_THAT(left(), UnorderedElementsAreArray(wayTo(place)));
    fs::remove_all(ground_ / "tree");
  }
}

TEST_P(RemoveCopiedTest, AFileThatIsMovedByItselfGoes) {
  ground_.file("tree", "text");
  EXPECT_EQ(remove(copy()), 0);
  EXPECT_FALSE(fs::exists(ground_ / "tree"));
}

TEST_P(RemoveCopiedTest, AFileWhoseTimeWasPutBackAfterAChangeStays) {
  const std::string file = ground_.file("tree", "text");
  const CopyRecord record = copy();
  const struct stat before = support::statusAt(file);
  ground_.file("tree", "TEXT");
  const timespec times[] = {before.st_atim, before.st_mtim};
  ::utimensat(AT_FDCWD, file.c_str(), times, 0);
  EXPECT_EQ(remove(record), EBUSY);
  EXPECT_EQ(ground_.content("tree"), "TEXT");
}

TEST_P(RemoveCopiedTest, AnotherFileOfTheNameStays) {
  ground_.file("tree", "text");
  const CopyRecord record = copy();
  ground_.file("other", "text");
  fs::rename(ground_ / "other", ground_ / "tree");
  EXPECT_EQ(remove(record), EBUSY);
  EXPECT_TRUE(fs::exists(ground_ / "tree"));
}

TEST_P(RemoveCopiedTest, WhereverSomethingIsAddedItStaysWithItsFoldersAlone) {
  for (const char* place : {"tree/new", "tree/none/new", "tree/sub/new", "tree/sub/deep/new"}) {
    SCOPED_TRACE(place);
    makeTree();
    const CopyRecord record = copy();
    ground_.file(place, "new");
    EXPECT_EQ(remove(record), EBUSY);
    EXPECT_THAT(kept_, UnorderedElementsAreArray(toldOf(place)));
    EXPECT_THAT(left(), UnorderedElementsAreArray(wayTo(place)));
    fs::remove_all(ground_ / "tree");
  }
}

TEST_P(RemoveCopiedTest, WhateverVanishesTheRestGoes) {
  for (const char* place : {"tree", "tree/a", "tree/link", "tree/none", "tree/sub", "tree/sub/b",
                            "tree/sub/deep", "tree/sub/deep/d"}) {
    SCOPED_TRACE(place);
    makeTree();
    const CopyRecord record = copy();
    fs::remove_all(ground_ / place);
    EXPECT_EQ(remove(record), 0);
    EXPECT_THAT(kept_, IsEmpty());
    EXPECT_FALSE(fs::exists(ground_ / "tree"));
  }
}

TEST_P(RemoveCopiedTest, WhicheverFolderIsAnotherIsNotEntered) {
  for (const char* place : {"tree/none", "tree/sub", "tree/sub/deep"}) {
    SCOPED_TRACE(place);
    makeTree();
    const CopyRecord record = copy();
    fs::rename(ground_ / place, ground_ / "aside");
    fs::copy(ground_ / "aside", ground_ / place, fs::copy_options::recursive);
    EXPECT_EQ(remove(record), EBUSY);
    EXPECT_THAT(kept_, UnorderedElementsAreArray(toldOf(place)));
    EXPECT_EQ(fs::exists(ground_ / (std::string(place) + "/deep/d")), std::string(place) == "tree/sub");
    fs::remove_all(ground_ / "tree");
    fs::remove_all(ground_ / "aside");
  }
}

TEST_P(RemoveCopiedTest, AFileInPlaceOfAFolderAndAFolderInPlaceOfAFileStay) {
  makeTree();
  const CopyRecord record = copy();
  fs::remove_all(ground_ / "tree/sub");
  ground_.file("tree/sub");
  fs::remove(ground_ / "tree/a");
  ground_.file("tree/a/inside");
  EXPECT_EQ(remove(record), EBUSY);
  EXPECT_THAT(kept_, UnorderedElementsAre(std::string("tree/sub") + kChanged,
                                          std::string("tree/a") + kChanged, std::string("tree") + kInTheWay));
  EXPECT_THAT(left(), UnorderedElementsAre("tree/a", "tree/a/inside", "tree/sub"));
}

TEST_P(RemoveCopiedTest, EachOfManyThatStayIsToldOnce) {
  std::vector<std::string> expected = {std::string("tree") + kInTheWay};
  for (int i = 0; i < 300; ++i) ground_.file("tree/" + std::to_string(i));
  const CopyRecord record = copy();
  for (int i = 0; i < 400; i += 3) {
    const std::string place = "tree/" + std::to_string(i);
    ground_.file(place, "changed or added");
    expected.push_back(place + kChanged);
  }
  EXPECT_EQ(remove(record), EBUSY);
  EXPECT_THAT(kept_, UnorderedElementsAreArray(expected));
  EXPECT_EQ(left().size(), expected.size() - 1);
}

TEST_P(RemoveCopiedTest, WhatCannotBeRemovedIsToldOnce) {
  makeTree();
  const CopyRecord record = copy();
  FailingCall::run(SYS_unlinkat, EPERM, [&] {
    EXPECT_EQ(remove(record), EPERM);
    EXPECT_EQ(kept_.size(), 9U) << "the tree and the eight below it";
    for (const std::string& told : kept_) EXPECT_TRUE(told.ends_with(kInTheWay)) << told;
  });
  EXPECT_EQ(left().size(), 8U);
}

TEST_P(RemoveCopiedTest, AFolderWithNothingElseInItIsNotListed) {
  makeTree();
  const CopyRecord record = copy();
  FailingCall::run(SYS_getdents64, EIO, [&] { EXPECT_EQ(remove(record), 0); });
  EXPECT_FALSE(fs::exists(ground_ / "tree"));
}

TEST_P(RemoveCopiedTest, AFolderThatCannotBeListedIsTold) {
  makeTree();
  const CopyRecord record = copy();
  ground_.file("tree/sub/new");
  FailingCall::run(SYS_getdents64, EIO, [&] {
    EXPECT_EQ(remove(record), EIO);
    EXPECT_THAT(kept_, ElementsAre("tree/sub: cannot be listed", std::string("tree/sub") + kInTheWay,
                                   "tree: cannot be listed", std::string("tree") + kInTheWay));
  });
  EXPECT_THAT(left(), UnorderedElementsAre("tree/sub", "tree/sub/new"));
}

TEST_P(RemoveCopiedTest, NothingIsRemovedThatWasNotCompared) {
  makeTree();
  EXPECT_EQ(remove(copy(Check::none)), EIO);
  EXPECT_THAT(kept_, ElementsAre("tree: what is left of it stays: what was copied is forgotten"));
  EXPECT_EQ(left().size(), 8U);
}

TEST_P(RemoveCopiedTest, WhatIsCalledAsARecordIsIsMovedLikeAnythingElse) {
  for (const char* name : {"record", "record-2"}) {
    ground_.file(std::string(name) + "/record", "text");
    ground_.file(std::string(name) + "/record-2", "text");
    const std::string to = std::string("to-") + name;
    const UniqueDescriptor target(::open(ground_.folder(to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto copied = copyItem(folder_.get(), name, target.get(), name, name, options());
    ASSERT_TRUE(copied) << copied.error().description;
    EXPECT_TRUE(removeCopied(folder_.get(), copied.value(), name));
    EXPECT_FALSE(fs::exists(ground_ / name));
    EXPECT_EQ(ground_.content(to + "/" + name + "/record"), "text");
    EXPECT_EQ(ground_.content(to + "/" + name + "/record-2"), "text");
  }
}

TEST_P(RemoveCopiedTest, FoldersAsDeepAsACopyGoesGo) {
  std::string place = "tree";
  for (int depth = 1; depth < 256; ++depth) place += "/d";
  ground_.file(place + "/file");
  const CopyRecord record = copy();
  EXPECT_EQ(remove(record), 0);
  EXPECT_FALSE(fs::exists(ground_ / "tree"));
}

TEST_P(RemoveCopiedTest, NothingDeeperIsRemovedWhateverARecordTells) {
  CopyRecordWriter writer(folder_.get(), GetParam());
  std::string place = "tree";
  for (int depth = 0; depth < 300; ++depth, place += "/d") {
    const auto held = UniqueDescriptor(::open(ground_.folder(place).c_str(), O_RDONLY | O_DIRECTORY));
    const auto status = statusOf(held.get(), place);
    ASSERT_EQ(writer.add(Recorded::item, status.value(), depth == 0 ? "tree" : "d"), 0);
  }
  for (int depth = 0; depth < 300; ++depth) ASSERT_EQ(writer.addEnd(), 0);
  EXPECT_EQ(remove(writer.finish()), EIO);
  EXPECT_EQ(left().size(), 299U);
}

/// All names of a file go, whatever the removal of one changes in the others; what has a name elsewhere too.
TEST_P(RemoveCopiedTest, NamesOfOneFileGo) {
  makeTree();
  for (const char* place : {"tree/second", "tree/sub/third", "elsewhere"}) {
    fs::create_hard_link(ground_ / "tree/sub/b", ground_ / place);
  }
  EXPECT_EQ(remove(copy()), 0);
  EXPECT_FALSE(fs::exists(ground_ / "tree"));
  EXPECT_EQ(support::statusAt(ground_ / "copy/second").st_nlink, 3U);
  EXPECT_EQ(ground_.content("elsewhere"), "tree/sub/b");
}

TEST_P(RemoveCopiedTest, AsRootNothingIsRemovedThroughAMountThatCameSince) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  makeTree();
  const CopyRecord record = copy();
  const std::string sub = ground_ / "tree/sub";
  ASSERT_EQ(::mount(sub.c_str(), sub.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(remove(record), EBUSY);
  ASSERT_EQ(::umount(sub.c_str()), 0);
  EXPECT_THAT(kept_, ElementsAre(std::string("tree/sub") + kChanged, std::string("tree") + kInTheWay));
  EXPECT_THAT(left(), UnorderedElementsAre("tree/sub", "tree/sub/b", "tree/sub/c", "tree/sub/deep",
                                           "tree/sub/deep/d"));
}

TEST_P(RemoveCopiedTest, AsRootNothingIsRemovedWhereAMountHasComeOverTheItem) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  makeTree();
  const CopyRecord record = copy();
  const std::string tree = ground_ / "tree";
  ASSERT_EQ(::mount(tree.c_str(), tree.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(remove(record), EBUSY);
  ASSERT_EQ(::umount(tree.c_str()), 0);
  EXPECT_THAT(kept_, ElementsAre(std::string("tree") + kChanged));
  EXPECT_EQ(left().size(), 8U);
}

/// A record that is lost on the way.
class LostRecordTest : public RemoveCopiedTest {};

INSTANTIATE_TEST_SUITE_P(OfWhichTheLastEndIsInMemory, LostRecordTest, ::testing::Values(1));

TEST_P(LostRecordTest, WhatItCannotTellStays) {
  makeTree();
  const CopyRecord record = copy();
  FailingCall::run(SYS_pread64, EIO, [&] {
    EXPECT_EQ(remove(record), EIO);
    EXPECT_THAT(kept_, ElementsAre("tree: what is left of it stays: what was copied is forgotten"));
  });
  EXPECT_EQ(left().size(), 8U);
}

/// It is cut every sixteen bytes in turn.
TEST_P(LostRecordTest, WhereverItEndsWhatItTellsUpToThereGoesAndTheRestStays) {
  std::size_t most = 0;
  for (off_t length = 0;; length += 16) {
    makeTree();
    const CopyRecord record = copy();
    const UniqueDescriptor file = support::namelessFileOf(ground_.path());
    struct stat status {};
    ASSERT_EQ(::fstat(file.get(), &status), 0);
    if (length >= status.st_size) break;
    ASSERT_EQ(::ftruncate(file.get(), length), 0);
    EXPECT_EQ(remove(record), EIO);
    EXPECT_THAT(kept_, ElementsAre("tree: what is left of it stays: what was copied is forgotten"));
    EXPECT_TRUE(fs::exists(ground_ / "tree"));
    most = std::max(most, 8 - left().size());
    fs::remove_all(ground_ / "tree");
  }
  EXPECT_GE(most, 7U);
}

TEST_P(LostRecordTest, NothingIsCopiedWhereItCannotBeWritten) {
  makeTree();
  const auto attempt = [&] {
    const auto moved = moveByCopy(
        folder_.get(), "tree", folder_.get(), "tree",
        [](int, const std::string&) -> foundation::Result<void> { return {}; }, {}, options());
    return moved ? 0 : moved.error().code;
  };
  for (const char* place : {"tree/a", "tree/sub/b", "tree/sub/c", "tree/sub/deep/d"}) ground_.file(place);
  FailingCall::run(SYS_pwrite64, ENOSPC,
                   [&] { EXPECT_EQ(attempt(), ENOSPC) << "which has no other to make"; });
  EXPECT_EQ(left().size(), 8U);
  EXPECT_THAT(std::distance(fs::directory_iterator(ground_.path()), {}), 1);
}

}  // namespace
}  // namespace platform
