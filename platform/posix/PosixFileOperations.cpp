#include "platform/posix/PosixFileOperations.h"

#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/posix/TreeCopy.h"

namespace platform {
namespace {

using foundation::PropertyList;

class PosixFileOperation : public ThreadedFileOperation {
 public:
  OSStatus stop() override {
    isCancelled = true;
    return noErr;
  }

  std::atomic<bool> isCancelled = false;
};

std::uint64_t remaining(std::uint64_t total, std::uint64_t complete) {
  return total > complete ? total - complete : 0;
}

class PosixCopy : public ThreadedCopy {
 public:
  using ThreadedCopy::ThreadedCopy;

  void run() override {
    const auto copied = copy();
    tellEnd(copied ? noErr : statusForErrno(copied.error().code));
  }

 private:
  [[nodiscard]] std::chrono::nanoseconds uptime() const { return request().clock.uptime(); }
  [[nodiscard]] bool goesOn() const { return !operation_.isCancelled; }

  foundation::Result<void> copy() {
    const auto size = sizeOfTree(request().source, [this] { return goesOn(); });
    if (!size) return size.error();
    totals_ = size.value();
    CopyOptions options;
    options.onProgress = [this](const CopyProgress& soFar) {
      if (uptime() - lastUpdate_ >= request().statusInterval) update(soFar);
      return goesOn();
    };
    return copyItemAtPath(
        request().source,
        foundation::appendingPathComponent(request().destinationFolder, request().destinationName), options);
  }

  void update(const CopyProgress& soFar) {
    lastUpdate_ = uptime();
    tellProgress(soFar.currentItem, noErr, statusDictionary(soFar));
  }

  [[nodiscard]] PropertyList statusDictionary(const CopyProgress& soFar) const {
    const std::chrono::duration<double> seconds = uptime() - start_;
    const double throughput =
        seconds.count() > 0 ? static_cast<double>(soFar.bytesDone) / seconds.count() : 0;
    return PropertyList::Dictionary{
        {kFSOperationTotalBytesKey, totals_.bytes},
        {kFSOperationBytesCompleteKey, soFar.bytesDone},
        {kFSOperationBytesRemainingKey, remaining(totals_.bytes, soFar.bytesDone)},
        {kFSOperationTotalObjectsKey, totals_.objects},
        {kFSOperationObjectsCompleteKey, soFar.objectsDone},
        {kFSOperationObjectsRemainingKey, remaining(totals_.objects, soFar.objectsDone)},
        {kFSOperationThroughputKey, static_cast<std::uint64_t>(throughput)},
        {kFSOperationCurrentItemKey, soFar.currentItem},
    };
  }

  const PosixFileOperation& operation_ = dynamic_cast<PosixFileOperation&>(*request().operation);
  const std::chrono::nanoseconds start_ = uptime();
  std::chrono::nanoseconds lastUpdate_ = start_;
  TreeSize totals_;
};

}  // namespace

FileOperationRef PosixFileOperations::create() {
  return std::make_shared<PosixFileOperation>();
}

bool PosixFileOperations::isOwn(const FileOperationRef& operation) const {
  return dynamic_cast<PosixFileOperation*>(operation.get()) != nullptr;
}

OSStatus PosixFileOperations::begin(CopyRequest request) {
  return runOnThread(std::make_unique<PosixCopy>(std::move(request)));
}

}  // namespace platform
