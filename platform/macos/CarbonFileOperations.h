#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Clock.h"
#include "platform/FileOperations.h"
#include "platform/MainThread.h"

namespace platform {

/// Copies by the system's own file operations (FSFileOperation of Apple's File Manager Reference), as long as
/// a system has them. They copy all that a Mac's file systems keep of an item, and know what a volume does
/// best.
///
/// An operation reports to a run loop. A program without a window has none on its main thread, so that each
/// copy has a thread whose run loop serves it; what it tells is handed on to the main thread. The copy grows
/// in a hidden folder beside the destination (PrivateFolder.h) and gets its name when it is whole.
///
/// The system follows links on the way to a path: not for root in folders of others.
class CarbonFileOperations : public FileOperations {
 public:
  CarbonFileOperations(MainThread& mainThread, Clock& clock) : mainThread_(mainThread), clock_(clock) {}
  /// Cancels what runs and waits for it; both references are used until then.
  ~CarbonFileOperations() override;
  CarbonFileOperations(const CarbonFileOperations&) = delete;
  CarbonFileOperations& operator=(const CarbonFileOperations&) = delete;

  /// Whether this system has them.
  [[nodiscard]] static bool areThere();
  /// Whether an operation is one of these.
  [[nodiscard]] static bool owns(const FileOperationRef& operation);

  /// nullptr where the system makes none. REQUIRES areThere().
  FileOperationRef create() override;
  OSStatus scheduleOnMainThread(const FileOperationRef& operation) override;
  OSStatus unscheduleFromMainThread(const FileOperationRef& operation) override;
  /// The status by which the system begins it, or does not.
  OSStatus copyObject(const FileOperationRef& operation, const std::string& source,
                      const std::string& destinationFolder, const std::string& destinationName,
                      std::chrono::nanoseconds statusInterval, StatusCallback callback) override;
  OSStatus cancel(const FileOperationRef& operation) override;

 private:
  struct Copy;

  void begin(const FileOperationRef& operation);
  /// Lets go of it before who waits for the end goes on.
  void end(FileOperationRef operation);

  MainThread& mainThread_;
  Clock& clock_;
  std::mutex mutex_;  ///< guards running_
  std::condition_variable ended_;
  std::vector<FileOperationRef> running_;
};

}  // namespace platform
