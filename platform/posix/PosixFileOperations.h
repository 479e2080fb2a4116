#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/Clock.h"
#include "platform/FileOperations.h"
#include "platform/MainThread.h"

namespace platform {

/// Each copy has a thread of its own, which first counts what there is to copy and then copies it
/// (TreeCopy.h). It looks for a cancellation between the pieces of a file. A program that ends while
/// it copies leaves what was copied so far in a hidden folder beside the destination (".copying-" and
/// digits). The callback is destroyed on the main thread.
class PosixFileOperations : public FileOperations {
 public:
  PosixFileOperations(MainThread& mainThread, Clock& clock) : mainThread_(mainThread), clock_(clock) {}
  /// Cancels what runs and waits for it; both references are used until then.
  ~PosixFileOperations() override;
  PosixFileOperations(const PosixFileOperations&) = delete;
  PosixFileOperations& operator=(const PosixFileOperations&) = delete;

  FileOperationRef create() override;
  OSStatus scheduleOnMainThread(const FileOperationRef& operation) override;
  OSStatus unscheduleFromMainThread(const FileOperationRef& operation) override;
  OSStatus copyObject(const FileOperationRef& operation, const std::string& source,
                      const std::string& destinationFolder, const std::string& destinationName,
                      std::chrono::nanoseconds statusInterval, StatusCallback callback) override;
  OSStatus cancel(const FileOperationRef& operation) override;

 private:
  void begin(const FileOperationRef& operation);
  void end(const FileOperationRef& operation);

  MainThread& mainThread_;
  Clock& clock_;
  std::mutex mutex_;  ///< guards running_
  std::condition_variable ended_;
  std::vector<FileOperationRef> running_;
};

}  // namespace platform
