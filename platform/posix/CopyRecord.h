#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/posix/PathEntry.h"
#include "platform/posix/SipHash.h"
#include "platform/posix/UniqueDescriptor.h"

/// What is remembered of what was copied until the originals are removed: every item in the order of the
/// copy, each folder with an end behind what is in it.
///
///   folder "tree", file "a", folder "sub", file "b", end, link "c", end
///
/// A small record is memory only. A larger one lies, but for its first item and its end, in a file on the
/// volume that is copied to, without a name where the volume lets an open file have none, and takes some 64
/// bytes and the name for each item there. It is read from its beginning as often as is needed.
///
/// A volume may give back something else than was written to it. What is copied, the first item, is therefore
/// always in memory, and of each block in the file a digest, by a key that is the record's own and in memory
/// alone: a reader gets every block as it was written and in its place, or an error.
namespace platform {

/// How much of a record is kept in memory, in bytes.
inline constexpr std::size_t kRecordInMemory = 64UL << 10;

enum class Recorded : std::uint8_t {
  item,         ///< where it is a folder, what is in it follows, and an end
  furtherName,  ///< of a file that was copied before; its copy is a further name of that one's
  end           ///< of a folder; without status and name
};

struct RecordedItem {
  Recorded what = Recorded::end;
  std::string name;
  /// Whole for the first item; of others device, inode, mode, links, size, and when it was modified and
  /// changed.
  FileStatus status;
};

/// A whole record, which readers read.
class CopyRecord {
 public:
  CopyRecord() = default;

 private:
  friend class CopyRecordReader;
  friend class CopyRecordWriter;

  struct Block {
    std::size_t length = 0;
    std::uint64_t digest = 0;  ///< of its number and its bytes
  };

  [[nodiscard]] std::uint64_t digestOf(std::size_t number, std::string_view block) const;

  std::optional<RecordedItem> first_;
  UniqueDescriptor file_;      ///< none while all is in memory
  SipHashKey key_{};           ///< random where there is a file
  std::vector<Block> blocks_;  ///< those that lie in the file, one behind the other
  std::string rest_;           ///< the block that follows these
};

class CopyRecordWriter {
 public:
  /// REQUIRES that the folder stays open, and that nobody else can enter it (PrivateFolder): that is where
  /// the file is made, when more than so many bytes are to be remembered. Where its name cannot be taken away
  /// it is still there when the record is closed, as "record" or "record-2".
  explicit CopyRecordWriter(int folder, std::size_t inMemory = kRecordInMemory)
      : folder_(folder), inMemory_(inMemory) {}

  /// Answers 0 or an errno value, after which the record is of no use.
  [[nodiscard]] int add(Recorded what, const FileStatus& status, std::string_view name);
  [[nodiscard]] int addEnd() { return add(Recorded::end, {}, {}); }
  /// What was added. The writer is not used afterwards.
  [[nodiscard]] CopyRecord finish() { return std::move(record_); }

 private:
  [[nodiscard]] int writeBlock();

  int folder_;
  std::size_t inMemory_;
  off_t length_ = 0;  ///< of the file
  CopyRecord record_;
};

class CopyRecordReader {
 public:
  /// REQUIRES that the record outlives it.
  explicit CopyRecordReader(const CopyRecord& record) : record_(record) {}

  /// Answers 0 or an errno value: EIO for what is not as it was written, and where nothing follows.
  [[nodiscard]] int next(RecordedItem& item);

 private:
  [[nodiscard]] int readItem(RecordedItem& item);
  [[nodiscard]] int readBlock();

  const CopyRecord& record_;
  bool hasBegun_ = false;
  std::size_t blocksRead_ = 0;
  off_t fileAt_ = 0;
  std::string block_;      ///< read from the file
  std::string_view left_;  ///< of the block in hand
};

}  // namespace platform
