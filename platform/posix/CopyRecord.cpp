#include "platform/posix/CopyRecord.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <type_traits>

#include "platform/foundation/Paths.h"
#include "platform/posix/FileContents.h"

namespace platform {
namespace {

/// What stands before a name. For this process alone, so as its memory has it.
struct Head {
  std::uint64_t device;
  std::uint64_t inode;
  std::uint64_t links;
  std::uint64_t size;
  std::int64_t modifiedSeconds;
  std::int64_t changedSeconds;
  std::uint32_t modifiedNanoseconds;
  std::uint32_t changedNanoseconds;
  std::uint32_t mode;
  std::uint16_t nameLength;
  std::uint16_t what;
};
// Nothing else of the memory gets into the file.
static_assert(std::has_unique_object_representations_v<Head>);

Head headOf(Recorded what, const FileStatus& status, std::size_t nameLength) {
  return {.device = status.device,
          .inode = status.inode,
          .links = status.links,
          .size = status.size,
          .modifiedSeconds = status.modified.tv_sec,
          .changedSeconds = status.changed.tv_sec,
          .modifiedNanoseconds = static_cast<std::uint32_t>(status.modified.tv_nsec),
          .changedNanoseconds = static_cast<std::uint32_t>(status.changed.tv_nsec),
          .mode = status.mode,
          .nameLength = static_cast<std::uint16_t>(nameLength),
          .what = static_cast<std::uint16_t>(what)};
}

FileStatus statusFrom(const Head& head) {
  FileStatus status;
  status.device = head.device;
  status.inode = head.inode;
  status.links = head.links;
  status.size = head.size;
  status.modified = {static_cast<time_t>(head.modifiedSeconds), static_cast<long>(head.modifiedNanoseconds)};
  status.changed = {static_cast<time_t>(head.changedSeconds), static_cast<long>(head.changedNanoseconds)};
  status.mode = static_cast<mode_t>(head.mode);
  return status;
}

/// None where errno says why. What is copied there can have one of the two names.
UniqueDescriptor makeFile(int folder) {
  for (const char* name : {"record", "record-2"}) {
    UniqueDescriptor file(
        ::openat(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file && errno == EEXIST) continue;
    // Where an open file has to keep its name (some network volumes), the file goes with the folder.
    if (file) static_cast<void>(::unlinkat(folder, name, 0));
    return file;
  }
  return {};
}

}  // namespace

std::uint64_t CopyRecord::digestOf(std::size_t number, std::string_view block) const {
  SipHash digest(key_);
  digest.add(number);
  return digest.end(block);
}

int CopyRecordWriter::add(Recorded what, const FileStatus& status, std::string_view name) {
  if (name.size() > std::numeric_limits<std::uint16_t>::max()) return ENAMETOOLONG;
  if (!record_.first_) {
    record_.first_ = {what, std::string(name), status};
    return 0;
  }
  const Head head = headOf(what, status, name.size());
  std::string& block = record_.rest_;
  if (!block.empty() && block.size() + sizeof head + name.size() > inMemory_) {
    if (const int reason = writeBlock(); reason != 0) return reason;
  }
  block.append(reinterpret_cast<const char*>(&head), sizeof head).append(name);
  return 0;
}

int CopyRecordWriter::writeBlock() {
  std::string& block = record_.rest_;
  if (!record_.file_) {
    if (::getentropy(record_.key_.data(), sizeof record_.key_) != 0) return errno;
    record_.file_ = makeFile(folder_);
  }
  if (!record_.file_ || !writeAt(record_.file_.get(), block.data(), block.size(), length_)) return errno;
  length_ += static_cast<off_t>(block.size());
  record_.blocks_.push_back({block.size(), record_.digestOf(record_.blocks_.size(), block)});
  block.clear();
  return 0;
}

int CopyRecordReader::next(RecordedItem& item) {
  if (hasBegun_) {
    if (const int reason = readItem(item); reason != 0) return reason;
  } else {
    if (!record_.first_) return EIO;
    item = *record_.first_;
    hasBegun_ = true;
  }
  return item.what == Recorded::end || foundation::isItemName(item.name) ? 0 : EIO;
}

int CopyRecordReader::readItem(RecordedItem& item) {
  if (left_.empty()) {
    if (const int reason = readBlock(); reason != 0) return reason;
  }
  Head head;  // NOLINT(*-member-init): filled in the next line but one
  if (left_.size() < sizeof head) return EIO;
  std::memcpy(&head, left_.data(), sizeof head);
  left_.remove_prefix(sizeof head);
  if (left_.size() < head.nameLength || head.what > static_cast<unsigned>(Recorded::end)) return EIO;
  item.what = static_cast<Recorded>(head.what);
  item.name = left_.substr(0, head.nameLength);
  item.status = statusFrom(head);
  left_.remove_prefix(head.nameLength);
  return 0;
}

int CopyRecordReader::readBlock() {
  if (blocksRead_ > record_.blocks_.size()) return EIO;
  if (blocksRead_++ == record_.blocks_.size()) {
    left_ = record_.rest_;
    return left_.empty() ? EIO : 0;
  }
  const std::size_t number = blocksRead_ - 1;
  const CopyRecord::Block& written = record_.blocks_[number];
  block_.resize(written.length);
  const ssize_t count = readAt(record_.file_.get(), block_.data(), block_.size(), fileAt_);
  if (count < 0) return errno;
  if (static_cast<std::size_t>(count) != block_.size()) return EIO;
  if (record_.digestOf(number, block_) != written.digest) return EIO;
  fileAt_ += count;
  left_ = block_;
  return 0;
}

}  // namespace platform
