#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/OSStatus.h"
#include "platform/foundation/PropertyList.h"

namespace platform {

/// Stages of a file operation, with the numbers of the Mac's FSFileOperationStage.
enum class FileOperationStage : std::uint32_t { undefined = 0, preflighting = 1, running = 2, complete = 3 };

/// Keys of an operation's status dictionary. Counts are whole numbers: bytes of content, and objects (files,
/// folders, links); totals are those of the whole operation. Throughput is in bytes a second since the
/// operation began. The current item is the path that is being copied.
inline constexpr const char* kFSOperationTotalBytesKey = "kFSOperationTotalBytesKey";
inline constexpr const char* kFSOperationBytesCompleteKey = "kFSOperationBytesCompleteKey";
inline constexpr const char* kFSOperationBytesRemainingKey = "kFSOperationBytesRemainingKey";
inline constexpr const char* kFSOperationTotalObjectsKey = "kFSOperationTotalObjectsKey";
inline constexpr const char* kFSOperationObjectsCompleteKey = "kFSOperationObjectsCompleteKey";
inline constexpr const char* kFSOperationObjectsRemainingKey = "kFSOperationObjectsRemainingKey";
inline constexpr const char* kFSOperationThroughputKey = "kFSOperationThroughputKey";
inline constexpr const char* kFSOperationCurrentItemKey = "kFSOperationCurrentItemKey";

/// An operation. Whoever holds it may cancel it; a scheduled one lives on without being held.
class FileOperation {
 public:
  virtual ~FileOperation() = default;
};
using FileOperationRef = std::shared_ptr<FileOperation>;

/// What a status callback hears.
struct FileOperationUpdate {
  FileOperationRef operation;
  std::string currentItem;  ///< a path; empty where there is none
  FileOperationStage stage = FileOperationStage::undefined;
  OSStatus error = noErr;  ///< userCanceledErr when it was cancelled
  /// While running, a dictionary with the keys above; nullptr where there is none.
  const foundation::PropertyList* statusDictionary = nullptr;
};

/// Operations on files that take their time, after the Mac's FSFileOperation (Carbon File Manager Reference).
class FileOperations {
 public:
  using StatusCallback = std::function<void(const FileOperationUpdate&)>;
  virtual ~FileOperations() = default;

  [[nodiscard]] virtual FileOperationRef create() = 0;

  /// Has the main thread hear of the operation's progress; without that it hears nothing.
  virtual OSStatus scheduleOnMainThread(const FileOperationRef& operation) = 0;
  virtual OSStatus unscheduleFromMainThread(const FileOperationRef& operation) = 0;

  /// Begins to copy an item into a folder under a name where nothing is; returns at once. Links are copied as
  /// links. The callback is called on the main thread: once an interval while it runs, and once at its end
  /// (stage complete), however it ends. A copy that fails or is cancelled leaves nothing behind, and nothing
  /// is at the destination before it is whole. Errors that show only while it runs (the source is missing,
  /// the destination is taken) arrive at the callback. REQUIRES an operation that has not begun.
  virtual OSStatus copyObject(const FileOperationRef& operation, const std::string& source,
                              const std::string& destinationFolder, const std::string& destinationName,
                              std::chrono::nanoseconds statusInterval, StatusCallback callback) = 0;

  /// Asks a running operation to stop; it does so within 100 milliseconds. paramErr for none.
  virtual OSStatus cancel(const FileOperationRef& operation) = 0;
};

}  // namespace platform
