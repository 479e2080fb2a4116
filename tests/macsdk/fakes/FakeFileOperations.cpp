#include "tests/macsdk/fakes/FakeFileOperations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/macos/CarbonFiles.h"
#include "platform/macos/CoreFoundationValues.h"
#include "platform/posix/ItemLocks.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"

namespace fakes {

FileOperationsState& fileOperations() {
  static FileOperationsState only;
  return only;
}

std::set<ino_t>& lockedItems() {
  static std::set<ino_t> only;
  return only;
}

}  // namespace fakes

namespace {

namespace fs = std::filesystem;
using namespace platform::carbon;
using fakes::fileOperations;
using foundation::PropertyList;

constexpr SInt32 kTimedOut = 3;
constexpr FSFileOperationStage kPreflighting = 1;
constexpr FSFileOperationStage kRunning = 2;
constexpr FSFileOperationStage kComplete = 3;

/// The one that runs.
struct Running {
  FSFileOperationRef operation = nullptr;
  std::string source;
  std::string target;
  FSPathFileOperationStatusProcPtr callback = nullptr;
  void* info = nullptr;
  FSFileOperationStage next = kPreflighting;
};
Running running;
std::atomic<bool> isCancelled = false;
/// The run loop of the operation; each thread has another.
thread_local char ownLoop = 0;
const void* servingLoop = nullptr;

OSStatus record(const std::string& function, const std::string& arguments) {
  fileOperations().calls.push_back(function + " " + arguments);
  return fileOperations().statuses[function];
}

void tell(FSFileOperationStage stage, const std::string& item, OSStatus error, CFDictionaryRef status) {
  running.callback(running.operation, item.c_str(), stage, error, status, running.info);
}

void tellStatus() {
  const auto status = platform::coreFoundationValue(
      PropertyList::Dictionary{{"the system's total of bytes", std::int64_t{7}}, {"the system's own", "x"}});
  tell(kRunning, running.source, platform::noErr, static_cast<CFDictionaryRef>(status.get()));
}

void lock() {
  struct stat status {};
  if (::lstat(running.target.c_str(), &status) == 0) fakes::lockedItems().insert(status.st_ino);
}

bool isLocked(int folder, const char* name) {
  struct stat status {};
  return !fakes::lockedItems().empty() && ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         fakes::lockedItems().contains(status.st_ino);
}

int refuse() {
  errno = EPERM;
  return -1;
}

void copy() {
  if (fileOperations().outcome != platform::noErr || isCancelled) {
    std::ofstream(running.target) << "a part";
    return;
  }
  fs::copy(running.source, running.target, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

void goOn() {
  const FSFileOperationStage stage = running.next++;
  if (stage == kPreflighting) tell(stage, running.source, platform::noErr, nullptr);
  if (stage == kRunning) tellStatus();
  if (stage != kComplete) return;
  copy();
  if (fileOperations().locks) lock();
  tell(stage, running.target, isCancelled ? platform::userCanceledErr : fileOperations().outcome, nullptr);
}

}  // namespace

namespace platform {

std::uint32_t takeLocks(int held) {
  struct stat status {};
  if (::fstat(held, &status) != 0) return 0;
  return static_cast<std::uint32_t>(fakes::lockedItems().erase(status.st_ino));
}

void giveLocks(int held, std::uint32_t) {
  struct stat status {};
  if (::fstat(held, &status) == 0) fakes::lockedItems().insert(status.st_ino);
}

}  // namespace platform

extern "C" {

/// This system's calls, which the program finds here before the C library's: a Mac refuses what is locked.
int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept {
  if (isLocked(from, name)) return refuse();
  return static_cast<int>(::syscall(SYS_renameat2, from, name, to, newName, flags));
}

int unlinkat(int folder, const char* name, int flags) noexcept {
  return isLocked(folder, name) ? refuse() : static_cast<int>(::syscall(SYS_unlinkat, folder, name, flags));
}

CFRunLoopRef CFRunLoopGetCurrent() {
  return reinterpret_cast<CFRunLoopRef>(&ownLoop);
}

SInt32 CFRunLoopRunInMode(CFStringRef, CFTimeInterval, Boolean) {
  if (servingLoop != &ownLoop) return kCFRunLoopRunFinished;
  if (std::exchange(fileOperations().isWithoutSourcesAtFirst, false)) return kCFRunLoopRunFinished;
  if (running.next == kComplete && fileOperations().runsUntilCancelled && !isCancelled) return kTimedOut;
  goOn();
  return kTimedOut;
}

extern const CFStringRef kFSOperationTotalBytesKey;
const CFStringRef kFSOperationTotalBytesKey = fakes::makeConstantText("the system's total of bytes");

FSFileOperationRef FSFileOperationCreate(CFAllocatorRef) {
  if (record("FSFileOperationCreate", "") != 0) return nullptr;
  return static_cast<FSFileOperationRef>(const_cast<void*>(fakes::makeUnknownObject()));
}

OSStatus FSFileOperationScheduleWithRunLoop(FSFileOperationRef, CFRunLoopRef loop, CFStringRef mode) {
  servingLoop = loop;
  return record("FSFileOperationScheduleWithRunLoop", platform::textOf(mode));
}

OSStatus FSFileOperationUnscheduleFromRunLoop(FSFileOperationRef, CFRunLoopRef loop, CFStringRef mode) {
  const bool isOurs = servingLoop == loop;
  servingLoop = nullptr;
  return record("FSFileOperationUnscheduleFromRunLoop", (isOurs ? "" : "another ") + platform::textOf(mode));
}

OSStatus FSPathCopyObjectAsync(FSFileOperationRef operation, const char* source, const char* folder,
                               CFStringRef name, OptionBits options,
                               FSPathFileOperationStatusProcPtr callback, CFTimeInterval interval,
                               FSFileOperationClientContext* context) {
  isCancelled = false;
  running = {operation, source, folder + ("/" + platform::textOf(name)), callback, context->info};
  return record("FSPathCopyObjectAsync", source + std::string(" options ") + std::to_string(options) +
                                             " interval " + std::to_string(interval));
}

/// Not recorded: it comes from another thread.
OSStatus FSFileOperationCancel(FSFileOperationRef operation) {
  if (operation != running.operation) return platform::paramErr;
  isCancelled = true;
  return platform::noErr;
}

}  // extern "C"
