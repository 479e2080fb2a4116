#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace platform {

/// How far a copy has come. Bytes are those of regular files by their sizes, holes included, a file with
/// several names counted once; objects are entries of every kind, the topmost among them.
struct CopyProgress {
  std::uint64_t bytesDone = 0;
  std::uint64_t objectsDone = 0;
  std::string currentItem = {};  ///< the path of the source
};

/// Told about once in kProgressInterval while a copy goes on; false cancels it. Also tells at the end, then
/// without effect.
using OnProgress = std::function<bool(const CopyProgress&)>;

/// Short enough that a cancelled copy has stopped a tenth of a second later.
inline constexpr std::chrono::milliseconds kProgressInterval{20};

/// The steps of a copy: counts, tells, and says how much to hand to the system at once. Pieces grow as long
/// as they take less than the interval, up to a limit, so that a fast disk is not held up and a slow one
/// answers to a cancel.
class CopyPace {
 public:
  /// `path` is the item in hand, as the copy moves along; it must outlive the pace.
  CopyPace(OnProgress onProgress, std::chrono::milliseconds interval, const std::string& path)
      : onProgress_(std::move(onProgress)), interval_(interval), path_(path) {}

  [[nodiscard]] std::size_t piece() const { return onProgress_ ? piece_ : kLargestPiece; }
  /// Each answers false when the copy is to stop.
  [[nodiscard]] bool copied(std::uint64_t bytes);
  [[nodiscard]] bool finishedObject();
  /// Time goes by without anything to count.
  [[nodiscard]] bool goOn();
  void end();

 private:
  using Clock = std::chrono::steady_clock;

  static constexpr std::size_t kSmallestPiece = 64UL << 10;
  static constexpr std::size_t kFirstPiece = 1UL << 20;
  /// A tenth of a second of a disk that writes 40 MB a second: it may have seemed faster, as long as there
  /// was memory to write to.
  static constexpr std::size_t kLargestToldPiece = 4UL << 20;
  static constexpr std::size_t kLargestPiece = 256UL << 20;

  void fitPiece(std::uint64_t bytes, Clock::duration took);
  bool tell(Clock::time_point now);

  OnProgress onProgress_;
  std::chrono::milliseconds interval_;
  const std::string& path_;
  CopyProgress progress_;
  std::size_t piece_ = kFirstPiece;
  Clock::time_point lastStep_ = Clock::now();
  Clock::time_point lastTold_ = lastStep_;
};

}  // namespace platform
