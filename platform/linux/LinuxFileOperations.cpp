#include "platform/linux/LinuxFileOperations.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/foundation/Paths.h"
#include "platform/linux/LinuxFileCopies.h"
#include "platform/linux/LinuxFolderQueries.h"

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

struct Totals {
  std::uint64_t bytes = 0;
  std::uint64_t objects = 0;
};

/// What a copy of the item has to do; links count as themselves. What cannot be looked at is left to the copy
/// to complain of.
class Count {
 public:
  explicit Count(const LinuxFileOperation& operation) : operation_(operation) {}

  Totals of(const std::string& path) {
    std::vector<std::string> waiting = {path};
    while (!waiting.empty() && !operation_.cancelled) {
      const std::string next = std::move(waiting.back());
      waiting.pop_back();
      addItem(next, waiting);
    }
    return totals_;
  }

 private:
  void addItem(const std::string& path, std::vector<std::string>& waiting) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return;
    ++totals_.objects;
    if (S_ISREG(status.st_mode)) totals_.bytes += static_cast<std::uint64_t>(status.st_size);
    if (!S_ISDIR(status.st_mode)) return;
    const auto entries = LinuxFolderQueries().entries(path);
    if (!entries) return;
    for (const FolderEntry& entry : entries.value()) {
      waiting.push_back(foundation::appendingPathComponent(path, entry.name));
    }
  }

  const LinuxFileOperation& operation_;
  Totals totals_;
};

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
  Totals totals = {};
  std::chrono::nanoseconds start = clock.uptime();
  std::chrono::nanoseconds lastUpdate = start;

  void run() {
    auto& own = *ours(operation);
    totals = Count(own).of(source);
    const auto copied = copyToPath(source, destination, [this, &own](const CopiedSoFar& soFar) {
      if (clock.uptime() - lastUpdate >= interval) update(soFar);
      return !own.cancelled;
    });
    send({operation, "", FileOperationStage::complete, copied ? noErr : statusForErrno(copied.error().code)});
  }

  void update(const CopiedSoFar& soFar) {
    lastUpdate = clock.uptime();
    send({operation, soFar.item, FileOperationStage::running}, statusDictionary(soFar));
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

  [[nodiscard]] PropertyList statusDictionary(const CopiedSoFar& soFar) const {
    const std::chrono::duration<double> seconds = clock.uptime() - start;
    const double throughput = seconds.count() > 0 ? static_cast<double>(soFar.bytes) / seconds.count() : 0;
    return PropertyList::Dictionary{
        {kFSOperationTotalBytesKey, totals.bytes},
        {kFSOperationBytesCompleteKey, soFar.bytes},
        {kFSOperationBytesRemainingKey, remaining(totals.bytes, soFar.bytes)},
        {kFSOperationTotalObjectsKey, totals.objects},
        {kFSOperationObjectsCompleteKey, soFar.objects},
        {kFSOperationObjectsRemainingKey, remaining(totals.objects, soFar.objects)},
        {kFSOperationThroughputKey, static_cast<std::uint64_t>(throughput)},
        {kFSOperationCurrentItemKey, soFar.item},
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
