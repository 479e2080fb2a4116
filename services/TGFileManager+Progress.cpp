#include <utility>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"

namespace {

using namespace std::chrono_literals;
using foundation::PropertyList;
using platform::FileOperationRef;
using platform::FileOperationStage;
using platform::FileOperationUpdate;

/// Queued, never waited for: whoever hears of the copy must not hold it up.
template <typename Call>
void performOnMainThread(Call call) {
  platform::current().mainThread.perform(std::move(call), platform::Wait::no);
}

void addEntries(PropertyList& report, const PropertyList& more) {
  const auto* const entries = more.as<PropertyList::Dictionary>();
  if (entries == nullptr) return;
  for (const auto& [key, value] : *entries) report.set(key, value);
}

/// The information dictionary, with the stage before it.
TGFileOperationReport reportOf(const FileOperationUpdate& update, const TGFileOperationReport& information) {
  TGFileOperationReport report = information;
  report.entries = PropertyList::Dictionary{{"stage", static_cast<int>(update.stage)}};
  addEntries(report.entries, information.entries);
  return report;
}

void reportProgress(const FileOperationUpdate& update, TGFileOperationReport report) {
  addEntries(report.entries, *update.statusDictionary);
  if (!report.delegate) return;
  performOnMainThread([report = std::move(report), operation = update.operation] {
    report.delegate->fileOperationProgress(report, operation);
  });
}

void reportEnd(const FileOperationUpdate& update, TGFileOperationReport report) {
  if (report.delegate) {
    performOnMainThread([report = std::move(report), operation = update.operation] {
      report.delegate->fileOperationFinished(report, operation);
    });
  }
  const auto status = platform::current().fileOperations.unscheduleFromMainThread(update.operation);
  if (status != platform::noErr) NSLog("Failed to unschedule operation from run loop: %@", status);
}

/// The update's error is not looked at, on purpose: a copy that ends in one is reported as finished, and its
/// delegate looks at the destination.
void statusCallback(const FileOperationUpdate& update, const TGFileOperationReport& information) {
  TGFileOperationReport report = reportOf(update, information);
  if (update.stage == FileOperationStage::running && update.statusDictionary != nullptr) {
    reportProgress(update, std::move(report));
  } else if (update.stage == FileOperationStage::complete) {
    reportEnd(update, std::move(report));
  }
}

bool prepareFolder(const TGFileManager::Path& source, const std::string& folder) {
  if (TGFileManager::fileExistsAtPath(folder) || TGFileManager::createDirectory(folder, 10s)) return true;
  NSLog("Unable to copy file %@ - destination directory %@ doesn't exist. Aborting copy process...", source,
        folder);
  return false;
}

FileOperationRef scheduledOperation() {
  auto& operations = platform::current().fileOperations;
  FileOperationRef operation = operations.create();
  const auto status = operations.scheduleOnMainThread(operation);
  if (status == platform::noErr) return operation;
  NSLog("Failed to schedule operation with run loop: %@", status);
  return nullptr;
}

}  // namespace

bool TGFileManager::copyFileWithProgress(const Path& source, const Path& destination,
                                         const Delegate& delegate, const Object& object,
                                         const Object& object2) {
  if (!fileExistsAtPath(source)) {
    NSLog("Error: File %@ doesn't exist. Aborting copy process...", source);
    return false;
  }
  const std::string target = destination.value_or("");
  const std::string folder = foundation::deletingLastPathComponent(target);
  if (!prepareFolder(source, folder)) return false;
  const FileOperationRef operation = scheduledOperation();
  if (!operation) return false;
  TGFileOperationReport information{
      PropertyList::Dictionary{{"source", *source}, {"destination", target}, {"operationtype", "copy"}},
      delegate, object, object2};
  const auto status = platform::current().fileOperations.copyObject(
      operation, *source, folder, foundation::lastPathComponent(target), 1s,
      [information = std::move(information)](const FileOperationUpdate& update) {
        statusCallback(update, information);
      });
  if (status != platform::noErr) NSLog("Failed to begin asynchronous object copy: %@", status);
  return status == platform::noErr;
}

void TGFileManager::cancelFileOperation(const FileOperationRef& operation) {
  if (operation) platform::current().fileOperations.cancel(operation);
}
