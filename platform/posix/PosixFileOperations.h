#pragma once

#include "platform/posix/ThreadedFileOperations.h"

namespace platform {

/// Each copy first counts on its thread what there is to copy and then copies it (TreeCopy.h). It looks for a
/// cancellation between the pieces of a file. A program that ends while it copies leaves what was copied so
/// far in a hidden folder beside the destination (".copying-" and digits).
class PosixFileOperations : public ThreadedFileOperations {
 public:
  using ThreadedFileOperations::ThreadedFileOperations;

  FileOperationRef create() override;

 private:
  [[nodiscard]] bool isOwn(const FileOperationRef& operation) const override;
  OSStatus begin(CopyRequest request) override;
};

}  // namespace platform
