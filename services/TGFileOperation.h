#pragma once

#include <memory>

#include "platform/FileOperations.h"
#include "platform/foundation/PropertyList.h"

class TGFileOperationDelegate;

/// One report of a copy with progress.
struct TGFileOperationReport {
  /// "stage" (the stage's number: 2 running, 3 complete), "source", "destination" (with the new name) and
  /// "operationtype" ("copy"); while it runs also the platform's status (platform/FileOperations.h).
  foundation::PropertyList entries;

  /// What the copy was begun with under "delegate", "object" and "object2"; nullptr where there was none.
  std::shared_ptr<TGFileOperationDelegate> delegate = nullptr;
  std::shared_ptr<void> object = nullptr;
  std::shared_ptr<void> object2 = nullptr;
};

/// Hears of a copy with progress, on the main thread. Every function may be left out: the one that names the
/// operation is called first, and hands over to the shorter one unless it is overridden. (A class that
/// overrides one of two brings in the other with `using TGFileOperationDelegate::fileOperationProgress`.)
class TGFileOperationDelegate {
 public:
  virtual ~TGFileOperationDelegate() = default;

  /// About once a second while the copy runs. TGFileManager::cancelFileOperation takes the operation.
  virtual void fileOperationProgress(const TGFileOperationReport& report,
                                     const platform::FileOperationRef& operation) {
    static_cast<void>(operation);
    fileOperationProgress(report);
  }
  virtual void fileOperationProgress(const TGFileOperationReport& report) { static_cast<void>(report); }

  /// Once, at the end, also of a copy that failed or was cancelled, on purpose: whether it succeeded is seen
  /// at the destination.
  virtual void fileOperationFinished(const TGFileOperationReport& report,
                                     const platform::FileOperationRef& operation) {
    static_cast<void>(operation);
    fileOperationFinished(report);
  }
  virtual void fileOperationFinished(const TGFileOperationReport& report) { static_cast<void>(report); }
};
