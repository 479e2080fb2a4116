#include "platform/macos/CarbonFileOperations.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/macos/CarbonFiles.h"
#include "platform/macos/CoreFoundationValues.h"
#include "platform/posix/BlockedSignals.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/PrivateFolder.h"

namespace platform {
namespace {

using foundation::PropertyList;

/// A run loop that serves nothing returns at once; what it is to serve may come later.
constexpr std::chrono::milliseconds kPauseWithoutSources{10};
constexpr CFTimeInterval kOneTurn = 1;

template <typename Function>
Function* systemsFunction(const char* name) {
  return carbon::lookedUp<Function>(name);
}

class CarbonFileOperation : public FileOperation {
 public:
  explicit CarbonFileOperation(carbon::FSFileOperationRef owned) : native_(owned) {}
  [[nodiscard]] carbon::FSFileOperationRef native() const { return native_.get(); }

  std::atomic<bool> scheduled = false;
  std::atomic<bool> begun = false;

 private:
  CoreFoundationReference<carbon::FSFileOperationRef> native_;
};

CarbonFileOperation* ours(const FileOperationRef& operation) {
  return dynamic_cast<CarbonFileOperation*>(operation.get());
}

bool isPath(const std::string& text) {
  return !text.empty() && text.find('\0') == std::string::npos;
}

bool isItemName(const std::string& text) {
  return isPath(text) && text != "." && text != ".." && text.find('/') == std::string::npos;
}

/// The system's name of a key, a variable; "" on a system that lacks it.
std::string systemsName(const char* key) {
  const auto* const name = carbon::lookedUp<const CFStringRef>(key);
  return name == nullptr ? "" : textOf(*name);
}

std::string programsName(const std::string& key) {
  constexpr std::array kKeys = {kFSOperationTotalBytesKey,      kFSOperationBytesCompleteKey,
                                kFSOperationBytesRemainingKey,  kFSOperationTotalObjectsKey,
                                kFSOperationObjectsCompleteKey, kFSOperationObjectsRemainingKey,
                                kFSOperationThroughputKey};
  for (const char* each : kKeys) {
    if (systemsName(each) == key) return each;
  }
  return key;
}

PropertyList statusOf(CFDictionaryRef dictionary, const std::string& currentItem) {
  PropertyList status = PropertyList::Dictionary{};
  const PropertyList known = knownEntriesOf(dictionary);
  for (const auto& [key, value] : *known.as<PropertyList::Dictionary>()) status.set(programsName(key), value);
  status.set(kFSOperationCurrentItemKey, currentItem);
  return status;
}

}  // namespace

/// One copy, on its thread.
struct CarbonFileOperations::Copy {
  FileOperationRef operation;
  std::string source;
  std::string destinationFolder;
  std::string name;
  std::chrono::nanoseconds interval;
  StatusCallback callback;
  MainThread& mainThread;
  Clock& clock;
  std::promise<OSStatus> begun = {};
  bool isComplete = false;
  OSStatus outcome = noErr;

  /// Tells by `begun` what the system says to it; what is in the way before, the callback hears.
  void run() {
    const auto folder = openGuardedFolder(destinationFolder);
    if (!folder) return endBefore(statusForErrno(folder.error().code));
    struct stat taken {};
    if (::fstatat(folder.value().get(), name.c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0) {
      return endBefore(dupFNErr);
    }
    const auto staging = PrivateFolder::make(folder.value().get(), destinationFolder);
    if (!staging) return endBefore(statusForErrno(staging.error().code));
    if (!copyInto(foundation::appendingPathComponent(destinationFolder, staging.value().name()))) return;
    if (outcome == noErr) outcome = giveItsName(staging.value().descriptor(), folder.value().get());
    tellItsEnd(outcome);
  }

  void endBefore(OSStatus status) {
    begun.set_value(noErr);
    tellItsEnd(status);
  }

  /// The callback is given away with what it holds, so that the last of it goes on the main thread.
  void tellItsEnd(OSStatus status) {
    send({operation, "", FileOperationStage::complete, status}, std::nullopt, std::move(callback));
  }

  [[nodiscard]] OSStatus giveItsName(int staging, int folder) const {
    const std::string path = foundation::appendingPathComponent(destinationFolder, name);
    const auto renamed = renameOutOf(staging, name, folder, path);
    return renamed ? noErr : statusForErrno(renamed.error().code);
  }

  bool answer(OSStatus failure) {
    begun.set_value(failure);
    return false;
  }

  /// Answers whether it was begun; then it has ended.
  bool copyInto(const std::string& folder) {
    const auto native = ours(operation)->native();
    auto* const loop = CFRunLoopGetCurrent();
    const OSStatus scheduled = systemsFunction<decltype(carbon::FSFileOperationScheduleWithRunLoop)>(
        "FSFileOperationScheduleWithRunLoop")(native, loop, kCFRunLoopDefaultMode);
    if (scheduled != noErr) return answer(scheduled);
    const OSStatus started = start(native, folder);
    if (started == noErr) {
      begun.set_value(noErr);
      serveRunLoop();
    }
    systemsFunction<decltype(carbon::FSFileOperationUnscheduleFromRunLoop)>(
        "FSFileOperationUnscheduleFromRunLoop")(native, loop, kCFRunLoopDefaultMode);
    return started == noErr || answer(started);
  }

  OSStatus start(carbon::FSFileOperationRef native, const std::string& folder) {
    const CoreFoundationString itemName = coreFoundationString(name);
    if (!itemName) return paramErr;
    carbon::FSFileOperationClientContext context{0, this, nullptr, nullptr, nullptr};
    const std::chrono::duration<double> seconds = interval;
    return systemsFunction<decltype(carbon::FSPathCopyObjectAsync)>("FSPathCopyObjectAsync")(
        native, source.c_str(), folder.c_str(), itemName.get(), carbon::kFSFileOperationDefaultOptions,
        &heard, seconds.count(), &context);
  }

  void serveRunLoop() {
    while (!isComplete) {
      const auto result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, kOneTurn, 1);
      if (result == kCFRunLoopRunFinished && !isComplete) clock.sleep(kPauseWithoutSources);
    }
  }

  /// Called by the run loop.
  static void heard(carbon::FSFileOperationRef, const char* currentItem, carbon::FSFileOperationStage stage,
                    carbon::OSStatus error, CFDictionaryRef statusDictionary, void* info) {
    auto* const copy = static_cast<Copy*>(info);
    if (stage == static_cast<std::uint32_t>(FileOperationStage::running)) {
      copy->update(currentItem == nullptr ? "" : currentItem, error, statusDictionary);
    }
    if (stage == static_cast<std::uint32_t>(FileOperationStage::complete)) {
      copy->outcome = error;
      copy->isComplete = true;
    }
  }

  void update(const std::string& currentItem, OSStatus error, CFDictionaryRef dictionary) const {
    std::optional<PropertyList> status;
    if (dictionary != nullptr) status = statusOf(dictionary, currentItem);
    send({operation, currentItem, FileOperationStage::running, error}, std::move(status), callback);
  }

  /// Whether it is scheduled is looked at when the main thread comes to it.
  void send(FileOperationUpdate news, std::optional<PropertyList> status, StatusCallback call) const {
    auto deliver = [news = std::move(news), status = std::move(status), call = std::move(call)]() mutable {
      if (!ours(news.operation)->scheduled) return;
      if (status) news.statusDictionary = &*status;
      call(news);
    };
    mainThread.perform(std::move(deliver), Wait::no);
  }
};

CarbonFileOperations::~CarbonFileOperations() {
  std::unique_lock lock(mutex_);
  for (const FileOperationRef& operation : running_) cancel(operation);
  ended_.wait(lock, [this] { return running_.empty(); });
}

void CarbonFileOperations::begin(const FileOperationRef& operation) {
  const std::scoped_lock lock(mutex_);
  running_.push_back(operation);
}

void CarbonFileOperations::end(FileOperationRef operation) {
  const std::scoped_lock lock(mutex_);
  std::erase(running_, operation);
  operation.reset();
  ended_.notify_all();  // before the lock is given back, after which all of this may be gone
}

bool CarbonFileOperations::areThere() {
  for (const char* function :
       {"FSFileOperationCreate", "FSFileOperationScheduleWithRunLoop", "FSFileOperationUnscheduleFromRunLoop",
        "FSPathCopyObjectAsync", "FSFileOperationCancel"}) {
    if (carbon::lookedUp<void>(function) == nullptr) return false;
  }
  return true;
}

bool CarbonFileOperations::owns(const FileOperationRef& operation) {
  return ours(operation) != nullptr;
}

FileOperationRef CarbonFileOperations::create() {
  auto* const native =
      systemsFunction<decltype(carbon::FSFileOperationCreate)>("FSFileOperationCreate")(kCFAllocatorDefault);
  return native == nullptr ? nullptr : std::make_shared<CarbonFileOperation>(native);
}

OSStatus CarbonFileOperations::scheduleOnMainThread(const FileOperationRef& operation) {
  CarbonFileOperation* const own = ours(operation);
  if (own == nullptr) return paramErr;
  own->scheduled = true;
  return noErr;
}

OSStatus CarbonFileOperations::unscheduleFromMainThread(const FileOperationRef& operation) {
  CarbonFileOperation* const own = ours(operation);
  return own != nullptr && own->scheduled.exchange(false) ? noErr : paramErr;
}

OSStatus CarbonFileOperations::copyObject(const FileOperationRef& operation, const std::string& source,
                                          const std::string& destinationFolder,
                                          const std::string& destinationName,
                                          std::chrono::nanoseconds statusInterval, StatusCallback callback) {
  CarbonFileOperation* const own = ours(operation);
  if (own == nullptr || !isPath(source) || !isPath(destinationFolder) || !isItemName(destinationName)) {
    return paramErr;
  }
  if (own->begun.exchange(true)) return paramErr;
  auto copy = std::make_unique<Copy>(Copy{operation, source, destinationFolder, destinationName,
                                          statusInterval, std::move(callback), mainThread_, clock_});
  auto begun = copy->begun.get_future();
  begin(operation);
  try {
    const BlockedSignals blocked;
    std::thread([this, operation = operation, copy = std::move(copy)]() mutable {
      copy->run();
      copy.reset();
      end(std::move(operation));
    }).detach();
  } catch (const std::system_error&) {
    end(operation);
    return memFullErr;
  }
  return begun.get();
}

OSStatus CarbonFileOperations::cancel(const FileOperationRef& operation) {
  CarbonFileOperation* const own = ours(operation);
  if (own == nullptr || !own->begun) return paramErr;
  return systemsFunction<decltype(carbon::FSFileOperationCancel)>("FSFileOperationCancel")(own->native());
}

}  // namespace platform
