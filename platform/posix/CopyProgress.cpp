#include "platform/posix/CopyProgress.h"

#include <algorithm>

namespace platform {

bool CopyPace::tell(Clock::time_point now) {
  lastTold_ = now;
  progress_.currentItem = path_;
  return onProgress_(progress_);
}

bool CopyPace::goOn() {
  if (!onProgress_) return true;
  lastStep_ = Clock::now();
  return lastStep_ - lastTold_ < interval_ || tell(lastStep_);
}

void CopyPace::fitPiece(std::uint64_t bytes, Clock::duration took) {
  if (bytes < piece_) return;
  if (took > kProgressInterval) piece_ = std::max(piece_ / 2, kSmallestPiece);
  if (took < kProgressInterval / 4) piece_ = std::min(piece_ * 2, kLargestToldPiece);
}

bool CopyPace::copied(std::uint64_t bytes) {
  progress_.bytesDone += bytes;
  if (!onProgress_) return true;
  fitPiece(bytes, Clock::now() - lastStep_);
  return goOn();
}

bool CopyPace::finishedObject() {
  ++progress_.objectsDone;
  return goOn();
}

void CopyPace::end() {
  if (onProgress_) static_cast<void>(tell(Clock::now()));
}

}  // namespace platform
