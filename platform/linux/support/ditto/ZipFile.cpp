#include "platform/linux/support/ditto/ZipFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>
#include <utility>

#include "platform/foundation/Text.h"

namespace ditto {
namespace {

// Values that say "look into the Zip64 fields".
constexpr std::uint64_t kFull32 = 0xFFFFFFFF;
constexpr std::uint64_t kFull16 = 0xFFFF;

constexpr unsigned kMadeOnUnix = 3U << 8U;
constexpr unsigned kNeedsDeflate = 20;
constexpr unsigned kNeedsZip64 = 45;
constexpr unsigned kNameIsUtf8 = 1U << 11U;
constexpr unsigned kDeflated = 8;
constexpr unsigned kDosFolder = 0x10;

constexpr std::size_t kBuffer = std::size_t{1} << 20U;

/// Little-endian fields in a row.
class Record {
 public:
  Record& put16(std::uint64_t value) { return put(value, 2); }
  Record& put32(std::uint64_t value) { return put(value, 4); }
  Record& put64(std::uint64_t value) { return put(value, 8); }
  Record& text(std::string_view bytes) {
    bytes_ += bytes;
    return *this;
  }
  [[nodiscard]] const std::string& bytes() const { return bytes_; }

 private:
  Record& put(std::uint64_t value, unsigned width) {
    for (unsigned index = 0; index < width; ++index) {
      bytes_ += static_cast<char>((value >> (8 * index)) & 0xFFU);
    }
    return *this;
  }

  std::string bytes_;
};

/// Date in the upper half, time in the lower. What lies outside of 1980 to 2107 becomes the nearest that the
/// format knows.
std::uint32_t dosTime(std::int64_t seconds) {
  constexpr std::uint32_t first = (1U << 21U) | (1U << 16U);
  constexpr std::uint32_t last =
      (127U << 25U) | (12U << 21U) | (31U << 16U) | (23U << 11U) | (59U << 5U) | 29U;
  const std::time_t time = seconds;
  std::tm local{};
  if (::localtime_r(&time, &local) == nullptr) return seconds < 0 ? first : last;
  if (local.tm_year < 80) return first;
  if (local.tm_year > 207) return last;
  const auto field = [](int value, unsigned shift) { return static_cast<std::uint32_t>(value) << shift; };
  return field(local.tm_year - 80, 25) | field(local.tm_mon + 1, 21) | field(local.tm_mday, 16) |
         field(local.tm_hour, 11) | field(local.tm_min, 5) | field(std::min(local.tm_sec, 59) / 2, 0);
}

std::string timestampField(std::int64_t seconds) {
  if (seconds < 0 || seconds > std::numeric_limits<std::int32_t>::max()) return {};
  Record field;
  field.put16(0x5455).put16(5).text("\x01").put32(static_cast<std::uint64_t>(seconds));
  return field.bytes();
}

std::string zip64Field(const std::string& values) {
  return values.empty() ? values : Record().put16(1).put16(values.size()).text(values).bytes();
}

/// What local and central header have in common, from the flags to the length of the name.
std::string commonFields(const ZipEntry& entry, std::uint32_t checksum, std::uint64_t packed,
                         std::uint64_t size) {
  Record record;
  record.put16(foundation::isUtf8(entry.name) ? kNameIsUtf8 : 0).put16(entry.isDeflated ? kDeflated : 0);
  record.put32(dosTime(entry.modified)).put32(checksum);
  record.put32(std::min(packed, kFull32)).put32(std::min(size, kFull32)).put16(entry.name.size());
  return record.bytes();
}

/// Deflating what cannot be made smaller adds a few bytes to each of its blocks.
bool mayNeedZip64(std::uint64_t mostSize) {
  constexpr std::uint64_t margin = std::uint64_t{16} << 20U;
  return mostSize >= kFull32 - margin;
}

}  // namespace

ZipFile::ZipFile(int descriptor) : descriptor_(descriptor) {
  const off_t offset = ::lseek(descriptor, 0, SEEK_CUR);
  if (offset < 0) failure_ = errno;
  flushed_ = static_cast<std::uint64_t>(std::max<off_t>(offset, 0));
  buffer_.reserve(2 * kBuffer);
}

void ZipFile::begin(ZipEntry entry, std::uint64_t mostSize) {
  current_ = Current{.entry = std::move(entry), .offset = position(), .isLarge = mayNeedZip64(mostSize)};
  append(localHeader());
  current_.content = position();
}

void ZipFile::append(std::string_view bytes) {
  buffer_ += bytes;
  if (buffer_.size() >= kBuffer) flush();
}

void ZipFile::end(std::uint32_t checksum, std::uint64_t size) {
  current_.checksum = checksum;
  current_.size = size;
  current_.packed = position() - current_.content;
  replace(current_.offset, localHeader());
  directory_ += centralHeader();
  ++entries_;
}

void ZipFile::finish() {
  const std::uint64_t directory = position();
  buffer_ += directory_;
  buffer_ += endOfDirectory(directory);
  flush();
}

std::string ZipFile::localHeader() const {
  std::string zip64;
  if (current_.isLarge) zip64 = zip64Field(Record().put64(current_.size).put64(current_.packed).bytes());
  const std::string extra = zip64 + timestampField(current_.entry.modified);
  const std::uint64_t packed = current_.isLarge ? kFull32 : current_.packed;
  const std::uint64_t size = current_.isLarge ? kFull32 : current_.size;
  Record record;
  record.text("PK\x03\x04").put16(current_.isLarge ? kNeedsZip64 : kNeedsDeflate);
  record.text(commonFields(current_.entry, current_.checksum, packed, size)).put16(extra.size());
  return record.text(current_.entry.name).text(extra).bytes();
}

std::string ZipFile::centralHeader() const {
  Record large;  // the values that do not fit, in this order and no others
  for (const std::uint64_t value : {current_.size, current_.packed, current_.offset}) {
    if (value >= kFull32) large.put64(value);
  }
  const std::string extra = zip64Field(large.bytes()) + timestampField(current_.entry.modified);
  const unsigned version = current_.isLarge || !large.bytes().empty() ? kNeedsZip64 : kNeedsDeflate;
  const std::uint32_t attributes = (static_cast<std::uint32_t>(current_.entry.mode) << 16U) |
                                   (S_ISDIR(current_.entry.mode) ? kDosFolder : 0);
  Record record;
  record.text("PK\x01\x02").put16(kMadeOnUnix | version).put16(version);
  record.text(commonFields(current_.entry, current_.checksum, current_.packed, current_.size));
  record.put16(extra.size())
      .put16(0)
      .put16(0)
      .put16(0);  // no comment, first disk, nothing said of the content
  record.put32(attributes).put32(std::min(current_.offset, kFull32));
  return record.text(current_.entry.name).text(extra).bytes();
}

std::string ZipFile::endOfDirectory(std::uint64_t directory) const {
  const std::uint64_t end = directory + directory_.size();
  Record record;
  if (entries_ >= kFull16 || directory >= kFull32 || directory_.size() >= kFull32) {
    record.text("PK\x06\x06").put64(44).put16(kMadeOnUnix | kNeedsZip64).put16(kNeedsZip64).put32(0).put32(0);
    record.put64(entries_).put64(entries_).put64(directory_.size()).put64(directory);
    record.text("PK\x06\x07").put32(0).put64(end).put32(1);
  }
  record.text("PK\x05\x06").put32(0);
  record.put16(std::min(entries_, kFull16)).put16(std::min(entries_, kFull16));
  record.put32(std::min<std::uint64_t>(directory_.size(), kFull32))
      .put32(std::min(directory, kFull32))
      .put16(0);
  return record.bytes();
}

/// Overwrites a header, which never straddles the buffer's beginning: append() adds it in one piece.
void ZipFile::replace(std::uint64_t offset, std::string_view bytes) {
  if (offset < flushed_) return write(bytes, offset);
  buffer_.replace(static_cast<std::size_t>(offset - flushed_), bytes.size(), bytes);
}

void ZipFile::flush() {
  write(buffer_, flushed_);
  flushed_ += buffer_.size();
  buffer_.clear();
}

void ZipFile::write(std::string_view bytes, std::uint64_t offset) {
  while (failure_ == 0 && !bytes.empty()) {
    const ssize_t count = ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      failure_ = count < 0 ? errno : ENOSPC;
      return;
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
}

}  // namespace ditto
