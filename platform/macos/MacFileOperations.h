#pragma once

#include "platform/macos/CarbonFileOperations.h"
#include "platform/posix/PosixFileOperations.h"

namespace platform {

/// The system's own file operations where it has them (CarbonFileOperations.h), else copies by descriptors
/// (PosixFileOperations.h). Root always copies by descriptors: the system would follow what users have put in
/// the way.
class MacFileOperations : public FileOperations {
 public:
  MacFileOperations(MainThread& mainThread, Clock& clock)
      : carbon_(mainThread, clock), own_(mainThread, clock) {}

  FileOperationRef create() override;
  OSStatus scheduleOnMainThread(const FileOperationRef& operation) override;
  OSStatus unscheduleFromMainThread(const FileOperationRef& operation) override;
  OSStatus copyObject(const FileOperationRef& operation, const std::string& source,
                      const std::string& destinationFolder, const std::string& destinationName,
                      std::chrono::nanoseconds statusInterval, StatusCallback callback) override;
  OSStatus cancel(const FileOperationRef& operation) override;

 private:
  FileOperations& serviceOf(const FileOperationRef& operation);

  CarbonFileOperations carbon_;
  PosixFileOperations own_;
};

}  // namespace platform
