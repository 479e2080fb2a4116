#pragma once

#include <zlib.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/linux/support/ditto/ZipFile.h"

namespace ditto {

/// Deflates files on several cores and writes them to an archive in the order in which they came:
///
///     caller reads -> | block | block | block | ... a ring | -> caller writes
///                        ^ workers deflate, each the next one ^
///
/// Content is cut into blocks of 256 KiB. Each is deflated by itself at zlib's level 6, with the 32 KiB
/// before it as dictionary, and ends on a byte, so that the blocks of a file joined are one ordinary deflate
/// stream (RFC 1951). Small files are one block. A file costs less than 1 % in size over one that is deflated
/// in one go. (libarchive and Info-ZIP deflate on one core; libarchive's writer takes no content that is
/// already deflated, which is why the container is ours and not its.)
///
/// Memory: about 0.6 MiB for each block of the ring, of which there are four for each worker.
class DeflateLine {
 public:
  static constexpr std::size_t kBlock = std::size_t{256} << 10U;
  static constexpr unsigned kMostWorkers = 8;

  /// As many workers as the process may use cores, at most kMostWorkers.
  [[nodiscard]] static unsigned workersForThisMachine();

  /// Signals are left to the caller's thread. Where the system grants fewer threads, there are fewer workers;
  /// without any the caller's thread deflates. Throws std::bad_alloc without memory.
  DeflateLine(ZipFile& zip, unsigned workers);
  /// What has not been drained is dropped.
  ~DeflateLine();
  DeflateLine(const DeflateLine&) = delete;
  DeflateLine& operator=(const DeflateLine&) = delete;

  /// Adds an entry with content that is stored as it is. REQUIRES not more than kBlock bytes.
  void store(ZipEntry entry, std::string_view content);

  struct Reading {
    std::uint64_t size = 0;  ///< bytes that are in the archive
    int failure = 0;         ///< the errno value of a failed read
  };
  /// Adds an entry with the content of an open file from its offset on: at most `size` bytes, so that a log
  /// that is being written ends somewhere. Where a read fails at the very beginning there is no entry; later,
  /// it has what could be read. Nothing more is read for an archive that cannot be written.
  Reading deflate(ZipEntry entry, int file, std::uint64_t size);

  /// Waits for the workers and writes what they have made.
  void drain();

 private:
  struct Block {
    std::optional<ZipEntry> begins;  ///< the entry that begins with this block
    std::uint64_t mostSize = 0;
    bool ends = false;
    bool isDone = false;
    std::size_t dictionary = 0;  ///< how much of the input is what went before
    std::size_t length = 0;
    std::vector<unsigned char> input;
    std::size_t packed = 0;
    std::uint32_t checksum = 0;
    std::vector<unsigned char> output;

    [[nodiscard]] const unsigned char* content() const { return input.data() + dictionary; }
  };

  class Deflater;

  Block& blockNumber(std::uint64_t number) { return blocks_[number % blocks_.size()]; }
  Block& freeBlock();
  void submit(bool isDone);
  void writeOldest();
  void write(const Block& block);
  void work(Deflater& deflater);
  void start();
  void stop();

  ZipFile& zip_;
  std::vector<Block> blocks_;
  std::mutex mutex_;  ///< guards the counters and each block's isDone
  std::condition_variable submitted_;
  std::condition_variable done_;
  std::uint64_t filled_ = 0;   ///< blocks that the caller has handed in
  std::uint64_t taken_ = 0;    ///< blocks that workers have begun
  std::uint64_t written_ = 0;  ///< blocks that are in the archive
  bool isStopping_ = false;
  std::uint32_t checksum_ = 0;  ///< of the entry that is being written
  std::uint64_t size_ = 0;
  std::vector<std::unique_ptr<Deflater>> deflaters_;
  std::vector<std::thread> workers_;
};

}  // namespace ditto
