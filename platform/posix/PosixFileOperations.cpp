#include "platform/posix/PosixFileOperations.h"

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/posix/BlockedSignals.h"
#include "platform/posix/TreeCopy.h"

namespace platform {
namespace {

using foundation::PropertyList;

class PosixFileOperation : public FileOperation {
 public:
  std::atomic<bool> scheduled = false;
  std::atomic<bool> begun = false;
  std::atomic<bool> cancelled = false;
};

PosixFileOperation* ours(const FileOperationRef& operation) {
  return dynamic_cast<PosixFileOperation*>(operation.get());
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
    const OSStatus status = copied ? noErr : statusForErrno(copied.error().code);
    // Given away with what it holds, so that the last of it goes on the main thread.
    send({operation, "", FileOperationStage::complete, status}, std::nullopt, std::move(callback));
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
    send({operation, soFar.currentItem, FileOperationStage::running}, statusDictionary(soFar), callback);
  }

  /// Whether it is scheduled is looked at when the main thread comes to it.
  void send(FileOperationUpdate news, std::optional<PropertyList> status,
            FileOperations::StatusCallback call) const {
    auto deliver = [news = std::move(news), status = std::move(status), call = std::move(call)]() mutable {
      if (!ours(news.operation)->scheduled) return;
      if (status) news.statusDictionary = &*status;
      call(news);
    };
    mainThread.perform(std::move(deliver), Wait::no);
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

PosixFileOperations::~PosixFileOperations() {
  std::unique_lock lock(mutex_);
  for (const FileOperationRef& operation : running_) ours(operation)->cancelled = true;
  ended_.wait(lock, [this] { return running_.empty(); });
}

void PosixFileOperations::begin(const FileOperationRef& operation) {
  const std::scoped_lock lock(mutex_);
  running_.push_back(operation);
}

void PosixFileOperations::end(const FileOperationRef& operation) {
  const std::scoped_lock lock(mutex_);
  std::erase(running_, operation);
  ended_.notify_all();  // before the lock is given back, after which all of this may be gone
}

FileOperationRef PosixFileOperations::create() {
  return std::make_shared<PosixFileOperation>();
}

OSStatus PosixFileOperations::scheduleOnMainThread(const FileOperationRef& operation) {
  PosixFileOperation* const own = ours(operation);
  if (own == nullptr) return paramErr;
  own->scheduled = true;
  return noErr;
}

OSStatus PosixFileOperations::unscheduleFromMainThread(const FileOperationRef& operation) {
  PosixFileOperation* const own = ours(operation);
  return own != nullptr && own->scheduled.exchange(false) ? noErr : paramErr;
}

OSStatus PosixFileOperations::copyObject(const FileOperationRef& operation, const std::string& source,
                                         const std::string& destinationFolder,
                                         const std::string& destinationName,
                                         std::chrono::nanoseconds statusInterval, StatusCallback callback) {
  PosixFileOperation* const own = ours(operation);
  if (own == nullptr || !isPath(source) || !isPath(destinationFolder) || !isItemName(destinationName)) {
    return paramErr;
  }
  if (own->begun.exchange(true)) return paramErr;
  auto copy = std::make_unique<Copy>(
      Copy{operation, source, foundation::appendingPathComponent(destinationFolder, destinationName),
           statusInterval, std::move(callback), mainThread_, clock_});
  begin(operation);
  try {
    const BlockedSignals blocked;
    std::thread([this, operation, copy = std::move(copy)]() mutable {
      copy->run();
      copy.reset();
      end(operation);
    }).detach();
  } catch (const std::system_error&) {
    end(operation);
    return memFullErr;
  }
  return noErr;
}

OSStatus PosixFileOperations::cancel(const FileOperationRef& operation) {
  PosixFileOperation* const own = ours(operation);
  if (own == nullptr || !own->begun) return paramErr;
  own->cancelled = true;
  return noErr;
}

}  // namespace platform
