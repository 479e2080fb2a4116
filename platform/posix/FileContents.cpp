#include "platform/posix/FileContents.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "platform/posix/FileSystemCalls.h"

namespace platform {
namespace {

using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

/// Up to here one read and one write cost less than asking for anything better.
constexpr std::uint64_t kSmallFile = 64UL << 10;
constexpr std::size_t kBlockSize = 128UL << 10;
using Block = std::array<char, kBlockSize>;

constexpr off_t kToTheEnd = std::numeric_limits<off_t>::max();

bool hasHoles(const FileStatus& file) {
  return file.blocks * 512 < file.size;
}

/// The copy of one file.
class ContentsCopy {
 public:
  ContentsCopy(int from, int to, CopyPace& pace, const std::string& path)
      : from_(from), to_(to), pace_(pace), path_(path) {}

  Result<void> run(const FileStatus& original) {
    size_ = original.size;
    if (original.size > kSmallFile && shareContents(from_, to_)) return report(original.size);
    if (hasHoles(original)) return copyData(static_cast<off_t>(original.size));
    // A small file may be one that cannot tell its size, as in /proc: what it holds is what is read.
    return original.size <= kSmallFile ? readAndWrite(0, kToTheEnd) : copyRange(0, kToTheEnd);
  }

 private:
  Result<void> fail(int reason) const { return systemError(reason, path_); }
  Result<void> report(std::uint64_t bytes) const {
    return pace_.copied(bytes) ? Result<void>() : fail(ECANCELED);
  }

  /// What lies between the holes.
  Result<void> copyData(off_t size) {
    off_t done = 0;
    while (done < size) {
      const off_t data = ::lseek(from_, done, SEEK_DATA);
      if (data < 0 && errno == ENXIO) break;  // a hole to the end
      if (data < 0) return copyRange(done, kToTheEnd);
      const off_t hole = ::lseek(from_, data, SEEK_HOLE);
      if (hole < 0) return fail(errno);
      if (auto told = report(static_cast<std::uint64_t>(data - done)); !told) return told;
      if (auto copied = copyRange(data, hole); !copied) return copied;
      done = hole;
    }
    if (::ftruncate(to_, size) != 0) return fail(errno);
    return report(static_cast<std::uint64_t>(std::max<off_t>(size - done, 0)));
  }

  Result<void> copyRange(off_t at, off_t end) {
    off_t fromAt = at;
    off_t toAt = at;
    while (fromAt < end) {
      const auto length = std::min<std::uint64_t>(pace_.piece(), static_cast<std::uint64_t>(end - fromAt));
      const ssize_t count = copyPiece(from_, fromAt, to_, toAt, length);
      if (count < 0 && errno == EINTR) continue;
      // Reading and writing says what is wrong, if anything is but this call.
      if (count < 0 || (count == 0 && fromAt == 0)) return readAndWrite(fromAt, end);
      if (count == 0) return {};
      if (auto told = report(static_cast<std::uint64_t>(count)); !told) return told;
    }
    return {};
  }

  Result<void> readAndWrite(off_t at, off_t end) {
    Block block;  // NOLINT(*-member-init): zeros for each small file would be written for nothing
    while (at < end) {
      const auto length = std::min<std::uint64_t>(block.size(), static_cast<std::uint64_t>(end - at));
      const ssize_t count = ::pread(from_, block.data(), length, at);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return fail(errno);
      if (count == 0) return {};
      if (!writeAt(to_, block.data(), static_cast<std::size_t>(count), at)) return fail(errno);
      at += count;
      if (auto told = report(static_cast<std::uint64_t>(count)); !told) return told;
      if (static_cast<std::uint64_t>(count) < length && static_cast<std::uint64_t>(at) == size_) return {};
    }
    return {};
  }

  int from_;
  int to_;
  CopyPace& pace_;
  const std::string& path_;
  std::uint64_t size_ = 0;
};

/// Where the next data is, or where it is at once when the file system cannot tell; `size` when there is
/// none.
off_t nextData(int file, off_t at, off_t size) {
  const off_t data = ::lseek(file, at, SEEK_DATA);
  if (data >= 0) return data;
  return errno == ENXIO ? size : at;
}

}  // namespace

Result<void> copyContents(int from, const FileStatus& original, int to, CopyPace& pace,
                          const std::string& path) {
  return ContentsCopy(from, to, pace, path).run(original);
}

Result<void> compareContents(int from, int to, CopyPace& pace, const std::string& path) {
  const off_t size = ::lseek(from, 0, SEEK_END);
  if (size < 0) return systemError(errno, path);
  const auto differs = [&path] { return errorWithReason(EIO, path, "the copy differs"); };
  if (::lseek(to, 0, SEEK_END) != size) return differs();
  Block original;  // NOLINT(*-member-init)
  Block copy;      // NOLINT(*-member-init)
  for (off_t at = 0; at < size;) {
    at = std::min(nextData(from, at, size), nextData(to, at, size));
    const ssize_t length = readAt(from, original.data(), original.size(), at);
    const ssize_t copyLength = readAt(to, copy.data(), copy.size(), at);
    if (length < 0 || copyLength < 0) return systemError(errno, path);
    if (length != copyLength || !std::equal(original.begin(), original.begin() + length, copy.begin()))
      return differs();
    if (length == 0) break;
    at += length;
    if (!pace.goOn()) return systemError(ECANCELED, path);
  }
  return {};
}

ssize_t readAt(int file, char* data, std::size_t length, off_t at) {
  std::size_t filled = 0;
  while (filled < length) {
    const ssize_t count = ::pread(file, data + filled, length - filled, at + static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(filled);
}

bool writeAt(int file, const char* data, std::size_t length, off_t at) {
  while (length > 0) {
    const ssize_t count = ::pwrite(file, data, length, at);
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;  // by a volume that is at fault, which might answer so for ever
    if (count <= 0) return false;
    data += count;
    at += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace platform
