#include "platform/macos/MacFileOperations.h"

#include <utility>

#include "platform/Platform.h"

namespace platform {

FileOperationRef MacFileOperations::create() {
  const bool isRoot = current().usersAndFolders.userID() == 0;
  return !isRoot && CarbonFileOperations::areThere() ? carbon_.create() : own_.create();
}

FileOperations& MacFileOperations::serviceOf(const FileOperationRef& operation) {
  if (CarbonFileOperations::owns(operation)) return carbon_;
  return own_;
}

OSStatus MacFileOperations::scheduleOnMainThread(const FileOperationRef& operation) {
  return serviceOf(operation).scheduleOnMainThread(operation);
}

OSStatus MacFileOperations::unscheduleFromMainThread(const FileOperationRef& operation) {
  return serviceOf(operation).unscheduleFromMainThread(operation);
}

OSStatus MacFileOperations::copyObject(const FileOperationRef& operation, const std::string& source,
                                       const std::string& destinationFolder,
                                       const std::string& destinationName,
                                       std::chrono::nanoseconds statusInterval, StatusCallback callback) {
  return serviceOf(operation).copyObject(operation, source, destinationFolder, destinationName,
                                         statusInterval, std::move(callback));
}

OSStatus MacFileOperations::cancel(const FileOperationRef& operation) {
  return serviceOf(operation).cancel(operation);
}

}  // namespace platform
