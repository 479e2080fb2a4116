#include "platform/macos/CarbonFileOperations.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <future>
#include <optional>
#include <utility>

#include "platform/foundation/Paths.h"
#include "platform/macos/CarbonFiles.h"
#include "platform/macos/CoreFoundationValues.h"
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

class CarbonFileOperation : public ThreadedFileOperation {
 public:
  explicit CarbonFileOperation(carbon::FSFileOperationRef owned) : native_(owned) {}
  [[nodiscard]] carbon::FSFileOperationRef native() const { return native_.get(); }

  OSStatus stop() override {
    return systemsFunction<decltype(carbon::FSFileOperationCancel)>("FSFileOperationCancel")(native());
  }

 private:
  CoreFoundationReference<carbon::FSFileOperationRef> native_;
};

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

class CarbonCopy : public ThreadedCopy {
 public:
  using ThreadedCopy::ThreadedCopy;

  /// What the system says to it; what is in the way before, the callback hears. To be asked once.
  [[nodiscard]] std::future<OSStatus> begun() { return begun_.get_future(); }

  void run() override {
    if (const auto outcome = copy()) tellEnd(*outcome);
  }

 private:
  [[nodiscard]] const std::string& name() const { return request().destinationName; }

  /// Answers how it ended, when nothing but the copy is left of it; nothing where the system did not begin
  /// it, for that begun() has told.
  std::optional<OSStatus> copy() {
    const std::string& path = request().destinationFolder;
    const auto folder = openGuardedFolder(path);
    if (!folder) return endedBefore(statusForErrno(folder.error().code));
    struct stat taken {};
    if (::fstatat(folder.value().get(), name().c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0) {
      return endedBefore(dupFNErr);
    }
    const auto staging = PrivateFolder::make(folder.value().get(), path);
    if (!staging) return endedBefore(statusForErrno(staging.error().code));
    if (!copyInto(foundation::appendingPathComponent(path, staging.value().name()))) return std::nullopt;
    return outcome_ == noErr ? giveItsName(staging.value().descriptor(), folder.value().get()) : outcome_;
  }

  OSStatus endedBefore(OSStatus status) {
    begun_.set_value(noErr);
    return status;
  }

  [[nodiscard]] OSStatus giveItsName(int staging, int folder) const {
    const std::string path = foundation::appendingPathComponent(request().destinationFolder, name());
    const auto renamed = renameOutOf(staging, name(), folder, path);
    return renamed ? noErr : statusForErrno(renamed.error().code);
  }

  bool answer(OSStatus failure) {
    begun_.set_value(failure);
    return false;
  }

  /// Answers whether it was begun; then it has ended.
  bool copyInto(const std::string& folder) {
    const auto native = dynamic_cast<CarbonFileOperation&>(*request().operation).native();
    auto* const loop = CFRunLoopGetCurrent();
    const OSStatus scheduled = systemsFunction<decltype(carbon::FSFileOperationScheduleWithRunLoop)>(
        "FSFileOperationScheduleWithRunLoop")(native, loop, kCFRunLoopDefaultMode);
    if (scheduled != noErr) return answer(scheduled);
    const OSStatus started = start(native, folder);
    if (started == noErr) {
      begun_.set_value(noErr);
      serveRunLoop();
    }
    systemsFunction<decltype(carbon::FSFileOperationUnscheduleFromRunLoop)>(
        "FSFileOperationUnscheduleFromRunLoop")(native, loop, kCFRunLoopDefaultMode);
    return started == noErr || answer(started);
  }

  OSStatus start(carbon::FSFileOperationRef native, const std::string& folder) {
    const CoreFoundationString itemName = coreFoundationString(name());
    if (!itemName) return paramErr;
    carbon::FSFileOperationClientContext context{0, this, nullptr, nullptr, nullptr};
    const std::chrono::duration<double> seconds = request().statusInterval;
    return systemsFunction<decltype(carbon::FSPathCopyObjectAsync)>("FSPathCopyObjectAsync")(
        native, request().source.c_str(), folder.c_str(), itemName.get(),
        carbon::kFSFileOperationDefaultOptions, &heard, seconds.count(), &context);
  }

  void serveRunLoop() {
    while (!isComplete_) {
      const auto result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, kOneTurn, 1);
      if (result == kCFRunLoopRunFinished && !isComplete_) request().clock.sleep(kPauseWithoutSources);
    }
  }

  /// Called by the run loop.
  static void heard(carbon::FSFileOperationRef, const char* currentItem, carbon::FSFileOperationStage stage,
                    carbon::OSStatus error, CFDictionaryRef statusDictionary, void* info) {
    auto* const copy = static_cast<CarbonCopy*>(info);
    if (stage == static_cast<std::uint32_t>(FileOperationStage::running)) {
      copy->update(currentItem == nullptr ? "" : currentItem, error, statusDictionary);
    }
    if (stage == static_cast<std::uint32_t>(FileOperationStage::complete)) {
      copy->outcome_ = error;
      copy->isComplete_ = true;
    }
  }

  void update(const std::string& currentItem, OSStatus error, CFDictionaryRef dictionary) const {
    std::optional<PropertyList> status;
    if (dictionary != nullptr) status = statusOf(dictionary, currentItem);
    tellProgress(currentItem, error, std::move(status));
  }

  std::promise<OSStatus> begun_;
  bool isComplete_ = false;
  OSStatus outcome_ = noErr;
};

}  // namespace

bool CarbonFileOperations::areThere() {
  for (const char* function :
       {"FSFileOperationCreate", "FSFileOperationScheduleWithRunLoop", "FSFileOperationUnscheduleFromRunLoop",
        "FSPathCopyObjectAsync", "FSFileOperationCancel"}) {
    if (carbon::lookedUp<void>(function) == nullptr) return false;
  }
  return true;
}

bool CarbonFileOperations::owns(const FileOperationRef& operation) {
  return dynamic_cast<CarbonFileOperation*>(operation.get()) != nullptr;
}

FileOperationRef CarbonFileOperations::create() {
  auto* const native =
      systemsFunction<decltype(carbon::FSFileOperationCreate)>("FSFileOperationCreate")(kCFAllocatorDefault);
  return native == nullptr ? nullptr : std::make_shared<CarbonFileOperation>(native);
}

OSStatus CarbonFileOperations::begin(CopyRequest request) {
  auto copy = std::make_unique<CarbonCopy>(std::move(request));
  auto begun = copy->begun();
  const OSStatus started = runOnThread(std::move(copy));
  return started == noErr ? begun.get() : started;
}

}  // namespace platform
