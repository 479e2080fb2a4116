// A volume that gives back another record of what was copied than was written to it: one that could be true.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/posix/TreeCopy.h"
#include "tests/support/NamelessFile.h"
#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

constexpr std::size_t kNothingInMemory = 1;

struct Line {
  Recorded what = Recorded::end;
  std::string place = {};
  std::uint64_t links = 1;
};

constexpr auto kItem = Recorded::item;
constexpr auto kFurtherName = Recorded::furtherName;

/// tree/a and tree/b, which are moved, and near/x and near/y, which are not.
class AlteredRecordTest : public ::testing::Test {
 protected:
  AlteredRecordTest() {
    for (const char* place : {"tree/a", "tree/b", "near/x", "near/y"}) ground_.file(place, place);
  }

  /// Each line, but for the first and the last, lies in the file for itself.
  CopyRecord recordOf(const std::vector<Line>& lines) {
    CopyRecordWriter writer(folder_.get(), kNothingInMemory);
    for (const auto& [what, place, links] : lines) {
      FileStatus status;
      if (what != Recorded::end) status = statusIn(folder_.get(), place, place).value();
      status.links = links;
      EXPECT_EQ(writer.add(what, status, fs::path(place).filename().string()), 0);
    }
    return writer.finish();
  }
  CopyRecord recordOfTree() { return recordOf({{kItem, "tree"}, {kItem, "tree/a"}, {kItem, "tree/b"}, {}}); }

  /// All that the file of the record that there is holds.
  [[nodiscard]] std::string written() const {
    const UniqueDescriptor file = support::namelessFileOf(ground_.path());
    std::string bytes(4096, '\0');
    const ssize_t count = ::pread(file.get(), bytes.data(), bytes.size(), 0);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  std::string writtenOf(const std::vector<Line>& lines) {
    const CopyRecord record = recordOf(lines);
    return written();
  }
  void alter(const std::string& bytes, off_t at = 0) {
    const UniqueDescriptor file = support::namelessFileOf(ground_.path());
    ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), at), static_cast<ssize_t>(bytes.size()));
  }

  /// Answers 0 or the reason.
  int remove(const CopyRecord& record) {
    const auto removed = removeCopied(
        folder_.get(), record, "tree",
        [this](const std::string& path, const std::string& why) { kept_.push_back(path + ": " + why); });
    return removed ? 0 : removed.error().code;
  }
  void expectNothingIsRemovedBy(const CopyRecord& record) {
    EXPECT_EQ(remove(record), EIO);
    EXPECT_THAT(kept_, ElementsAre("tree: what is left of it stays: what was copied is forgotten"));
    for (const char* place : {"tree/a", "tree/b", "near/x", "near/y"}) {
      EXPECT_TRUE(fs::exists(ground_ / place)) << place;
    }
  }
  /// A file is another one, of the same size and with the same time of modification.
  void changeSecretly(const std::string& place) {
    const struct stat before = support::statusAt(ground_ / place);
    ground_.file(place, "TREE/A");
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, (ground_ / place).c_str(), times, 0), 0);
  }

  support::TemporaryFolder ground_;
  UniqueDescriptor folder_{::open(ground_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  std::vector<std::string> kept_;
};

TEST_F(AlteredRecordTest, ItIsTrueWhereNothingIsAltered) {
  const CopyRecord record = recordOfTree();
  alter(written());
  EXPECT_EQ(remove(record), 0);
  EXPECT_FALSE(fs::exists(ground_ / "tree"));
}

TEST_F(AlteredRecordTest, NothingElseThanWhatWasMovedIsRemoved) {
  const std::string other = writtenOf({{kItem, "near"}, {kItem, "near/x"}, {kItem, "near/y"}, {}});
  const CopyRecord record = recordOfTree();
  alter(other);
  expectNothingIsRemovedBy(record);
}

TEST_F(AlteredRecordTest, AFileIsNotOneOfSeveralNamesThatWasNot) {
  const std::string other = writtenOf({{kItem, "tree"}, {kItem, "tree/a", 2}, {kItem, "tree/b"}, {}});
  const CopyRecord record = recordOfTree();
  alter(other);
  changeSecretly("tree/a");
  expectNothingIsRemovedBy(record);
}

TEST_F(AlteredRecordTest, AFileIsNotAFurtherNameThatWasNot) {
  const std::string other = writtenOf({{kItem, "tree"}, {kFurtherName, "tree/a"}, {kItem, "tree/b"}, {}});
  const CopyRecord record = recordOfTree();
  alter(other);
  expectNothingIsRemovedBy(record);
}

TEST_F(AlteredRecordTest, BlocksAreNotExchanged) {
  const std::string other = writtenOf({{kItem, "tree"}, {kItem, "tree/b"}, {kItem, "tree/a"}, {}});
  const CopyRecord record = recordOfTree();
  alter(other);
  expectNothingIsRemovedBy(record);
}

TEST_F(AlteredRecordTest, AnEarlierRecordIsNotThisOne) {
  std::string earlier;
  {
    const CopyRecord record = recordOfTree();
    earlier = written();
  }
  changeSecretly("tree/a");
  const CopyRecord record = recordOfTree();
  alter(earlier);
  expectNothingIsRemovedBy(record);
}

TEST_F(AlteredRecordTest, WhatCameBeforeTheAlteredBlockGoesAndTheRestStays) {
  const std::string genuine = writtenOf({{kItem, "tree"}, {kItem, "tree/b"}, {}});
  const std::string other = writtenOf({{kItem, "tree"}, {kItem, "tree/b", 2}, {}});
  const CopyRecord record = recordOfTree();
  alter(other, static_cast<off_t>(written().find(genuine)));
  EXPECT_EQ(remove(record), EIO);
  EXPECT_THAT(kept_, ElementsAre("tree: what is left of it stays: what was copied is forgotten"));
  EXPECT_FALSE(fs::exists(ground_ / "tree/a"));
  EXPECT_EQ(ground_.content("tree/b"), "tree/b");
}

/// The record is altered while it grows, and with it the copy.
TEST_F(AlteredRecordTest, NoFileGoesWithoutBeingComparedBecauseItIsToBeAFurtherName) {
  const std::string genuine = writtenOf({{kItem, "tree"}, {kItem, "tree/a"}, {}});
  const std::string other = writtenOf({{kItem, "tree"}, {kFurtherName, "tree/a"}, {}});
  CopyOptions options = optionsForMoving();
  options.flush = Flush::none;
  options.recordInMemory = kNothingInMemory;
  options.progressInterval = {};
  bool isAltered = false;
  options.onProgress = [&](const CopyProgress&) {
    const std::size_t at = written().find(genuine);
    if (isAltered || at == std::string::npos) return true;
    alter(other, static_cast<off_t>(at));
    ground_.file("copy/a", "EERT/A");
    isAltered = true;
    return true;
  };
  const auto copied = copyItem(folder_.get(), "tree", folder_.get(), "copy", "tree", options);
  ASSERT_TRUE(isAltered);
  ASSERT_FALSE(copied) << "a copy that differs";
  EXPECT_EQ(copied.error().code, EIO);
  EXPECT_EQ(ground_.content("tree/a"), "tree/a");
}

}  // namespace
}  // namespace platform
