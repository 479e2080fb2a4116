#include "platform/linux/LinuxFileOperations.h"

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/linux/TreeCopy.h"

namespace platform {
namespace {

using foundation::PropertyList;

class LinuxFileOperation : public FileOperation {
 public:
  std::atomic<bool> scheduled = false;
  std::atomic<bool> begun = false;
  std::atomic<bool> cancelled = false;
};

LinuxFileOperation* ours(const FileOperationRef& operation) {
  return dynamic_cast<LinuxFileOperation*>(operation.get());
}

bool isPath(const std::string& text) {
  return !text.empty() && text.find('\0') == std::string::npos;
}

bool isItemName(const std::string& text) {
  return isPath(text) && text != "." && text != ".." && text.find('/') == std::string::npos;
}

std::uint64_t remaining(std::uint64_t total, std::uint64_t complete) {
  return total > complete ? total - complete : 0;
}

/// One copy, on its thread.
struct Copy {
  FileOperationRef operation;
  std::string source;
  std::string destination;
  std::chrono::nanoseconds interval;
  FileOperations::StatusCallback callback;
  MainThread& mainThread;
  Clock& clock;
  TreeSize totals = {};
  std::chrono::nanoseconds start = clock.uptime();
  std::chrono::nanoseconds lastUpdate = start;

  void run() {
    const auto copied = copy();
    send({operation, "", FileOperationStage::complete, copied ? noErr : statusForErrno(copied.error().code)});
  }

  foundation::Result<void> copy() {
    const auto goesOn = [own = ours(operation)] { return !own->cancelled; };
    const auto size = sizeOfTree(source, goesOn);
    if (!size) return size.error();
    totals = size.value();
    CopyOptions options;
    options.onProgress = [this, goesOn](const CopyProgress& soFar) {
      if (clock.uptime() - lastUpdate >= interval) update(soFar);
      return goesOn();
    };
    return copyItemAtPath(source, destination, options);
  }

  void update(const CopyProgress& soFar) {
    lastUpdate = clock.uptime();
    send({operation, soFar.currentItem, FileOperationStage::running}, statusDictionary(soFar));
  }

  /// Whether it is scheduled is looked at when the main thread comes to it.
  void send(FileOperationUpdate news, std::optional<PropertyList> status = std::nullopt) const {
    const auto deliver = [news = std::move(news), status = std::move(status), call = callback]() mutable {
      if (!ours(news.operation)->scheduled) return;
      if (status) news.statusDictionary = &*status;
      call(news);
    };
    mainThread.perform(deliver, Wait::no);
  }

  [[nodiscard]] PropertyList statusDictionary(const CopyProgress& soFar) const {
    const std::chrono::duration<double> seconds = clock.uptime() - start;
    const double throughput =
        seconds.count() > 0 ? static_cast<double>(soFar.bytesDone) / seconds.count() : 0;
    return PropertyList::Dictionary{
        {kFSOperationTotalBytesKey, totals.bytes},
        {kFSOperationBytesCompleteKey, soFar.bytesDone},
        {kFSOperationBytesRemainingKey, remaining(totals.bytes, soFar.bytesDone)},
        {kFSOperationTotalObjectsKey, totals.objects},
        {kFSOperationObjectsCompleteKey, soFar.objectsDone},
        {kFSOperationObjectsRemainingKey, remaining(totals.objects, soFar.objectsDone)},
        {kFSOperationThroughputKey, static_cast<std::uint64_t>(throughput)},
        {kFSOperationCurrentItemKey, soFar.currentItem},
    };
  }
};

}  // namespace

FileOperationRef LinuxFileOperations::create() {
  return std::make_shared<LinuxFileOperation>();
}

OSStatus LinuxFileOperations::scheduleOnMainThread(const FileOperationRef& operation) {
  LinuxFileOperation* const own = ours(operation);
  if (own == nullptr) return paramErr;
  own->scheduled = true;
  return noErr;
}

OSStatus LinuxFileOperations::unscheduleFromMainThread(const FileOperationRef& operation) {
  LinuxFileOperation* const own = ours(operation);
  return own != nullptr && own->scheduled.exchange(false) ? noErr : paramErr;
}

OSStatus LinuxFileOperations::copyObject(const FileOperationRef& operation, const std::string& source,
                                         const std::string& destinationFolder,
                                         const std::string& destinationName,
                                         std::chrono::nanoseconds statusInterval, StatusCallback callback) {
  LinuxFileOperation* const own = ours(operation);
  if (own == nullptr || !isPath(source) || !isPath(destinationFolder) || !isItemName(destinationName)) {
    return paramErr;
  }
  if (own->begun.exchange(true)) return paramErr;
  const auto copy = std::make_shared<Copy>(
      Copy{operation, source, foundation::appendingPathComponent(destinationFolder, destinationName),
           statusInterval, std::move(callback), mainThread_, clock_});
  try {
    std::thread([copy] { copy->run(); }).detach();
  } catch (const std::system_error&) {
    return memFullErr;
  }
  return noErr;
}

OSStatus LinuxFileOperations::cancel(const FileOperationRef& operation) {
  LinuxFileOperation* const own = ours(operation);
  if (own == nullptr || !own->begun) return paramErr;
  own->cancelled = true;
  return noErr;
}

}  // namespace platform
