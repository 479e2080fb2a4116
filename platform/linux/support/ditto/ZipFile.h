#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace ditto {

/// One entry of a zip archive, as far as it is known before its content.
struct ZipEntry {
  std::string name;           ///< path in the archive, at most kLongestName bytes; a folder's ends in "/"
  mode_t mode = 0;            ///< type and permission bits as stat(2) gives them
  std::int64_t modified = 0;  ///< seconds since 1970
  bool isDeflated = false;    ///< its content is a raw deflate stream; else it is stored as it is
};

/// The container of a zip archive, as PKWARE's APPNOTE 6.3.3 and Info-ZIP's notes on extra fields describe
/// it: entries one after the other, each with a header that tells its sizes, and the central directory at the
/// end.
///
/// - A name that is UTF-8 is marked as such (general purpose bit 11). Any other is written byte for byte
///   without the mark: readers on Unix give back exactly these bytes, so nothing is altered or lost.
/// - Modes, links among them, stand in the external attributes as Unix has them.
/// - The time of modification stands in local time with two seconds' resolution, as the format asks, and
///   exactly in an extended timestamp field from 1970 to 2038; outside of this the field's readers disagree.
/// - Zip64 fields are written where they are needed and nowhere else, because old readers know none.
///
/// A failed write is remembered, everything after it does nothing: look at failure() now and then, and at the
/// end. One thread.
class ZipFile {
 public:
  static constexpr std::size_t kLongestName = 0xFFFF;

  /// Writes to a file open for writing, from its current offset on. The descriptor stays the caller's.
  explicit ZipFile(int descriptor);

  /// Begins an entry whose content takes at most `mostSize` bytes before it is deflated.
  void begin(ZipEntry entry, std::uint64_t mostSize);
  /// A piece of its content, deflated if the entry says so.
  void append(std::string_view bytes);
  /// Ends it; `checksum` (CRC-32) and `size` are of the content before it was deflated.
  void end(std::uint32_t checksum, std::uint64_t size);

  /// Writes the central directory. Nothing may follow. The file is not synced.
  void finish();

  /// The errno value of the first write that failed; 0 without one.
  [[nodiscard]] int failure() const { return failure_; }

 private:
  struct Current {
    ZipEntry entry;
    std::uint64_t offset = 0;  ///< of the local header
    std::uint64_t content = 0;
    std::uint64_t size = 0;
    std::uint64_t packed = 0;
    std::uint32_t checksum = 0;
    bool isLarge = false;  ///< has Zip64 fields in the local header
  };

  [[nodiscard]] std::uint64_t position() const { return flushed_ + buffer_.size(); }
  [[nodiscard]] std::string localHeader() const;
  [[nodiscard]] std::string centralHeader() const;
  [[nodiscard]] std::string endOfDirectory(std::uint64_t directory) const;
  void replace(std::uint64_t offset, std::string_view bytes);
  void flush();
  void write(std::string_view bytes, std::uint64_t offset);

  int descriptor_;
  int failure_ = 0;
  std::string buffer_;
  std::uint64_t flushed_ = 0;  ///< offset in the file at which the buffer belongs
  std::string directory_;
  std::uint64_t entries_ = 0;
  Current current_;
};

}  // namespace ditto
