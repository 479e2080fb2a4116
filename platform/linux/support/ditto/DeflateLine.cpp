#include "platform/linux/support/ditto/DeflateLine.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "platform/posix/BlockedSignals.h"

namespace ditto {
namespace {

constexpr std::size_t kWindow = std::size_t{32} << 10U;
constexpr std::size_t kBlocksForEachWorker = 4;
constexpr int kLevel = 6;
constexpr int kRawDeflate = -MAX_WBITS;
constexpr int kMemoryLevel = 8;

/// Reads until there is nothing more or the room is full. Answers the count, with errno set to 0 or the
/// reason why it is short.
std::size_t readFully(int file, unsigned char* room, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = ::read(file, room + filled, size - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return filled;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  errno = 0;
  return filled;
}

std::uint32_t checksumOf(const unsigned char* bytes, std::size_t size) {
  return static_cast<std::uint32_t>(::crc32_z(0, bytes, size));
}

}  // namespace

/// A worker's zlib stream.
class DeflateLine::Deflater {
 public:
  Deflater() {
    if (::deflateInit2(&stream_, kLevel, Z_DEFLATED, kRawDeflate, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~Deflater() { ::deflateEnd(&stream_); }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  /// What the largest block can become, and the empty block that brings it to a byte's end.
  [[nodiscard]] std::size_t largestOutput() { return ::deflateBound(&stream_, kBlock) + 16; }

  void deflate(Block& block) {
    ::deflateReset(&stream_);
    if (block.dictionary > 0) {
      ::deflateSetDictionary(&stream_, block.input.data(), static_cast<uInt>(block.dictionary));
    }
    stream_.next_in = block.input.data() + block.dictionary;
    stream_.avail_in = static_cast<uInt>(block.length);
    stream_.next_out = block.output.data();
    stream_.avail_out = static_cast<uInt>(block.output.size());
    ::deflate(&stream_, block.ends ? Z_FINISH : Z_SYNC_FLUSH);
    block.packed = block.output.size() - stream_.avail_out;
    block.checksum = checksumOf(block.content(), block.length);
  }

 private:
  z_stream stream_{};
};

unsigned DeflateLine::workersForThisMachine() {
  return std::clamp(std::thread::hardware_concurrency(), 1U, kMostWorkers);
}

DeflateLine::DeflateLine(ZipFile& zip, unsigned workers)
    : zip_(zip), blocks_(workers * kBlocksForEachWorker) {
  for (unsigned index = 0; index < workers; ++index) deflaters_.push_back(std::make_unique<Deflater>());
  for (Block& block : blocks_) {
    block.input.resize(kWindow + kBlock);
    block.output.resize(deflaters_.front()->largestOutput());
  }
  start();
}

DeflateLine::~DeflateLine() {
  stop();
}

/// With the threads that there are; without any the caller's own does the work.
void DeflateLine::start() {
  const platform::BlockedSignals blocked;
  try {
    for (const auto& deflater : deflaters_) workers_.emplace_back([this, &deflater] { work(*deflater); });
  } catch (const std::system_error&) {
    return;
  } catch (...) {
    stop();
    throw;
  }
}

void DeflateLine::stop() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  submitted_.notify_all();
  for (std::thread& worker : workers_) worker.join();
}

void DeflateLine::store(ZipEntry entry, std::string_view content) {
  Block& block = freeBlock();
  block.begins = std::move(entry);
  block.mostSize = content.size();
  block.ends = true;
  block.length = block.packed = content.size();
  std::copy(content.begin(), content.end(), block.input.begin());
  std::copy(content.begin(), content.end(), block.output.begin());
  block.checksum = checksumOf(block.content(), block.length);
  submit(true);
}

DeflateLine::Reading DeflateLine::deflate(ZipEntry entry, int file, std::uint64_t size) {
  Reading reading;
  entry.isDeflated = true;
  std::optional<ZipEntry> begins = std::move(entry);
  const Block* before = nullptr;
  for (bool ends = false; !ends && zip_.failure() == 0;) {
    Block& block = freeBlock();
    if (before != nullptr) {  // full, or there would be nothing after it
      block.dictionary = kWindow;
      std::memcpy(block.input.data(), before->content() + before->length - kWindow, kWindow);
    }
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size - reading.size, kBlock));
    block.length = readFully(file, block.input.data() + block.dictionary, wanted);
    reading.failure = errno;
    reading.size += block.length;
    if (reading.failure != 0 && reading.size == 0) return reading;
    block.begins = std::exchange(begins, std::nullopt);
    block.mostSize = size;
    block.ends = ends = block.length < wanted || reading.size == size;
    before = &block;
    submit(false);
  }
  return reading;
}

void DeflateLine::drain() {
  while (written_ < filled_) writeOldest();
}

DeflateLine::Block& DeflateLine::freeBlock() {
  if (filled_ - written_ == blocks_.size()) writeOldest();
  Block& block = blockNumber(filled_);
  block.begins.reset();
  block.dictionary = 0;
  block.isDone = false;
  return block;
}

void DeflateLine::submit(bool isDone) {
  {
    const std::lock_guard lock(mutex_);
    blockNumber(filled_).isDone = isDone;
    ++filled_;
  }
  submitted_.notify_one();
}

void DeflateLine::writeOldest() {
  Block& oldest = blockNumber(written_);
  if (workers_.empty() && !oldest.isDone) {
    deflaters_.front()->deflate(oldest);
    oldest.isDone = true;
  }
  {
    std::unique_lock lock(mutex_);
    done_.wait(lock, [&oldest] { return oldest.isDone; });
    taken_ =
        std::max(taken_, written_ + 1);  // no worker is to find something else in the place of stored content
  }
  write(oldest);
  ++written_;
}

void DeflateLine::write(const Block& block) {
  if (block.begins) {
    zip_.begin(*block.begins, block.mostSize);
    checksum_ = 0;
    size_ = 0;
  }
  zip_.append({reinterpret_cast<const char*>(block.output.data()), block.packed});
  const auto length = static_cast<z_off_t>(block.length);
  checksum_ = static_cast<std::uint32_t>(::crc32_combine(checksum_, block.checksum, length));
  size_ += block.length;
  if (block.ends) zip_.end(checksum_, size_);
}

void DeflateLine::work(Deflater& deflater) {
  std::unique_lock lock(mutex_);
  for (;;) {
    submitted_.wait(lock, [this] { return isStopping_ || taken_ < filled_; });
    if (isStopping_) return;
    Block& block = blockNumber(taken_++);
    if (block.isDone) continue;
    lock.unlock();
    deflater.deflate(block);
    lock.lock();
    block.isDone = true;
    done_.notify_one();
  }
}

}  // namespace ditto
