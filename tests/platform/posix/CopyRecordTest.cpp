#include "platform/posix/CopyRecord.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>

#include "platform/posix/PrivateFolder.h"
#include "tests/support/FailingCall.h"
#include "tests/support/NamelessFile.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::FailingCall;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kNothingInMemory = 1;

FileStatus statusOfNumber(std::uint64_t number) {
  FileStatus status;
  status.inode = number;
  status.mode = S_IFREG | 0640;
  return status;
}

class CopyRecordTest : public ::testing::Test {
 protected:
  /// Of files of those names.
  CopyRecord recordOf(const std::vector<std::string>& names, std::size_t inMemory = kNothingInMemory) {
    CopyRecordWriter writer(folder_.get(), inMemory);
    for (const std::string& name : names) EXPECT_EQ(writer.add(Recorded::item, statusOfNumber(1), name), 0);
    return writer.finish();
  }

  /// Adds files until one cannot be remembered; answers why.
  int addUntilItFails() {
    CopyRecordWriter writer(folder_.get(), kNothingInMemory);
    for (int i = 0; i < 3; ++i) {
      if (const int reason = writer.add(Recorded::item, statusOfNumber(1), "name"); reason != 0)
        return reason;
    }
    return 0;
  }

  /// Reads until it fails; answers why.
  static int readAll(const CopyRecord& record, std::vector<std::string>* names = nullptr) {
    CopyRecordReader reader(record);
    RecordedItem item;
    while (true) {
      if (const int reason = reader.next(item); reason != 0) return reason;
      if (names != nullptr) names->push_back(item.name);
    }
  }

  [[nodiscard]] UniqueDescriptor fileOfRecord() const { return support::namelessFileOf(ground_.path()); }

  TemporaryFolder ground_;
  UniqueDescriptor folder_{::open(ground_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(CopyRecordTest, WhatWasAddedComesBackInItsOrder) {
  const std::vector<std::string> names = {"file", "\n\t \x7f",           "\xff\xfe", "-",
                                          "...",  std::string(255, 'n'), "record"};
  for (const std::size_t inMemory : {kRecordInMemory, kNothingInMemory, std::size_t{200}}) {
    SCOPED_TRACE(inMemory);
    const CopyRecord record = recordOf(names, inMemory);
    std::vector<std::string> read;
    EXPECT_EQ(readAll(record, &read), EIO) << "nothing follows";
    EXPECT_EQ(read, names);
    read.clear();
    EXPECT_EQ(readAll(record, &read), EIO);
    EXPECT_EQ(read, names) << "a second time";
  }
}

TEST_F(CopyRecordTest, ThousandsComeBackThatMemoryDoesNotHold) {
  std::vector<std::string> names;
  names.reserve(5'000);
  for (int i = 0; i < 5'000; ++i) names.push_back("segment-" + std::to_string(i));
  const CopyRecord record = recordOf(names, kRecordInMemory);
  EXPECT_TRUE(fileOfRecord());
  std::vector<std::string> read;
  EXPECT_EQ(readAll(record, &read), EIO);
  EXPECT_EQ(read, names);
}

TEST_F(CopyRecordTest, AllThatTellsAFileComesBack) {
  FileStatus status;
  status.device = std::numeric_limits<std::uint64_t>::max();
  status.inode = std::numeric_limits<std::uint64_t>::max() - 1;
  status.links = std::numeric_limits<std::uint64_t>::max() - 2;
  status.size = std::numeric_limits<std::uint64_t>::max() - 3;
  status.mode = S_IFLNK | 07777;
  status.modified = {-1, 999'999'999};
  status.changed = {std::numeric_limits<time_t>::max(), 1};
  status.mount = 7;
  for (const std::size_t inMemory : {kRecordInMemory, kNothingInMemory}) {
    CopyRecordWriter writer(folder_.get(), inMemory);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(writer.add(Recorded::furtherName, status, "name"), 0);
    const CopyRecord record = writer.finish();
    CopyRecordReader reader(record);
    for (int i = 0; i < 3; ++i) {
      RecordedItem item;
      ASSERT_EQ(reader.next(item), 0);
      EXPECT_EQ(item.what, Recorded::furtherName);
      EXPECT_TRUE(item.status.isSameFile(status));
      EXPECT_EQ(item.status.mount, i == 0 ? 7U : 0U) << "of the first alone";
      EXPECT_EQ(item.status.links, status.links);
      EXPECT_EQ(item.status.size, status.size);
      EXPECT_EQ(item.status.mode, status.mode);
      EXPECT_EQ(item.status.modified.tv_sec, -1);
      EXPECT_EQ(item.status.modified.tv_nsec, 999'999'999);
      EXPECT_EQ(item.status.changed.tv_sec, status.changed.tv_sec);
      EXPECT_EQ(item.status.changed.tv_nsec, 1);
    }
  }
}

TEST_F(CopyRecordTest, EndsStandWhereTheyWereAdded) {
  for (const std::size_t inMemory : {kRecordInMemory, kNothingInMemory}) {
    CopyRecordWriter writer(folder_.get(), inMemory);
    ASSERT_EQ(writer.add(Recorded::item, statusOfNumber(1), "folder"), 0);
    ASSERT_EQ(writer.addEnd(), 0);
    ASSERT_EQ(writer.add(Recorded::furtherName, statusOfNumber(2), "link"), 0);
    const CopyRecord record = writer.finish();
    CopyRecordReader reader(record);
    std::vector<Recorded> read;
    for (RecordedItem item; reader.next(item) == 0;) read.push_back(item.what);
    EXPECT_THAT(read, ElementsAre(Recorded::item, Recorded::end, Recorded::furtherName));
  }
}

TEST_F(CopyRecordTest, NothingIsReadOfNoRecord) {
  EXPECT_EQ(readAll(CopyRecord()), EIO);
}

TEST_F(CopyRecordTest, ASmallOneNeedsNoFile) {
  FailingCall::run(SYS_openat, EIO, [this] {
    EXPECT_EQ(readAll(recordOf({"one", "two"}, kRecordInMemory)), EIO) << "nothing follows";
    EXPECT_EQ(addUntilItFails(), EIO) << "a large one does";
  });
}

TEST_F(CopyRecordTest, TheFileHasNoNameAndIsForNobodyElse) {
  const CopyRecord record = recordOf({"one", "two", "three"});
  EXPECT_TRUE(fs::is_empty(ground_.path()));
  const UniqueDescriptor file = fileOfRecord();
  struct stat status {};
  ASSERT_EQ(::fstat(file.get(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_EQ(status.st_nlink, 0U);
}

TEST_F(CopyRecordTest, TheFileEndsWithTheRecord) {
  {
    const CopyRecord record = recordOf({"one", "two", "three"});
    EXPECT_TRUE(fileOfRecord());
  }
  EXPECT_FALSE(fileOfRecord());
}

TEST_F(CopyRecordTest, WhatHasTheNameThatTheFileIsMadeUnderIsNotTouched) {
  ground_.file("record", "somebody's");
  EXPECT_EQ(addUntilItFails(), 0);
  fs::create_symlink("elsewhere", ground_ / "record-2");
  EXPECT_EQ(addUntilItFails(), EEXIST);
  EXPECT_EQ(ground_.content("record"), "somebody's");
  EXPECT_FALSE(fs::exists(ground_ / "elsewhere"));
}

TEST_F(CopyRecordTest, WhatCannotBeWrittenIsToldAndLeavesNoName) {
  for (const int reason : {ENOSPC, EIO, EDQUOT}) {
    FailingCall::run(SYS_pwrite64, reason, [&] { EXPECT_EQ(addUntilItFails(), reason); });
    EXPECT_TRUE(fs::is_empty(ground_.path()));
  }
}

TEST_F(CopyRecordTest, WhereAnOpenFileHasToKeepItsNameItGoesWithTheFolder) {
  auto made = PrivateFolder::make(folder_.get(), ground_.path());
  ASSERT_TRUE(made);
  {
    const PrivateFolder folder = std::move(made).value();
    FailingCall::run(SYS_unlinkat, EBUSY, [&] {
      CopyRecordWriter writer(folder.descriptor(), kNothingInMemory);
      for (const char* const name : {"one", "two", "three"}) {
        EXPECT_EQ(writer.add(Recorded::item, statusOfNumber(1), name), 0);
      }
      const CopyRecord record = writer.finish();
      std::vector<std::string> read;
      EXPECT_EQ(readAll(record, &read), EIO) << "nothing follows";
      EXPECT_THAT(read, ElementsAre("one", "two", "three"));
    });
    EXPECT_TRUE(fs::exists(ground_ / (folder.name() + "/record")));
  }
  EXPECT_TRUE(fs::is_empty(ground_.path()));
}

TEST_F(CopyRecordTest, WithoutRandomNumbersThereIsNoFile) {
  FailingCall::run(SYS_getrandom, EIO, [this] { EXPECT_EQ(addUntilItFails(), EIO); });
  EXPECT_TRUE(fs::is_empty(ground_.path()));
}

TEST_F(CopyRecordTest, WhatAVolumeDoesNotTakeIsAnError) {
  FailingCall::run(SYS_pwrite64, 0, [this] {
    ::alarm(60);  // it might be asked for ever
    EXPECT_EQ(addUntilItFails(), EIO) << "nothing written";
  });
}

TEST_F(CopyRecordTest, ANameThatNoFileSystemHasIsRefused) {
  CopyRecordWriter writer(folder_.get());
  EXPECT_EQ(writer.add(Recorded::item, {}, std::string(1UL << 16, 'n')), ENAMETOOLONG);
}

TEST_F(CopyRecordTest, WhatCannotBeReadIsTold) {
  const CopyRecord record = recordOf({"one", "two", "three"});
  FailingCall::run(SYS_pread64, ENXIO, [&] { EXPECT_EQ(readAll(record), ENXIO); });
}

TEST_F(CopyRecordTest, AFileThatHasBecomeShorterIsReadUpToThere) {
  const CopyRecord record = recordOf({"one", "two", "three", "four"});
  const UniqueDescriptor file = fileOfRecord();
  struct stat status {};
  ASSERT_EQ(::fstat(file.get(), &status), 0);
  ASSERT_EQ(::ftruncate(file.get(), status.st_size - 1), 0);
  std::vector<std::string> read;
  EXPECT_EQ(readAll(record, &read), EIO);
  EXPECT_THAT(read, ElementsAre("one", "two"));
}

TEST_F(CopyRecordTest, NoNameIsReadThatLeadsElsewhere) {
  for (const std::string name : {"a/b", "/ab", ".."}) {
    std::vector<std::string> read;
    EXPECT_EQ(readAll(recordOf({name, "rest"}), &read), EIO);
    EXPECT_THAT(read, IsEmpty());
    EXPECT_EQ(readAll(recordOf({"first", name, "rest"}), &read), EIO);
    EXPECT_THAT(read, ElementsAre("first"));
  }
}

/// What a volume gives back that is not what was written.
TEST_F(CopyRecordTest, WhateverByteIsAnotherItsBlockIsNotRead) {
  const CopyRecord record = recordOf({"first", "second", "third", "rest"});
  const UniqueDescriptor file = fileOfRecord();
  struct stat status {};
  ASSERT_EQ(::fstat(file.get(), &status), 0);
  const off_t third = status.st_size - (status.st_size - 6 - 5) / 2 - 5;
  char byte = 0;
  off_t at = 0;
  for (; ::pread(file.get(), &byte, 1, at) == 1; ++at) {
    for (const int mask : {0x01, 0x02, 0x2f, 0x80, 0xff}) {
      const char changed = static_cast<char>(byte ^ mask);
      ASSERT_EQ(::pwrite(file.get(), &changed, 1, at), 1);
      std::vector<std::string> read;
      EXPECT_EQ(readAll(record, &read), EIO);
      EXPECT_EQ(read.size(), at < third ? 1U : 2U) << at << ": " << mask;
    }
    ASSERT_EQ(::pwrite(file.get(), &byte, 1, at), 1);
  }
  EXPECT_EQ(at, status.st_size);
}

}  // namespace
}  // namespace platform
