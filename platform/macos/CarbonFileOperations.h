#pragma once

#include "platform/posix/ThreadedFileOperations.h"

namespace platform {

/// Copies by the system's own file operations (FSFileOperation of Apple's File Manager Reference), as long as
/// a system has them. They copy all that a Mac's file systems keep of an item, and know what a volume does
/// best.
///
/// An operation reports to a run loop. A program without a window has none on its main thread, so that the
/// run loop of each copy's thread serves it; what it tells is handed on to the main thread. copyObject()
/// answers the status by which the system begins it, or does not. The copy grows in a hidden folder beside
/// the destination (PrivateFolder.h) and gets its name when it is whole.
///
/// The system follows links on the way to a path: not for root in folders of others.
class CarbonFileOperations : public ThreadedFileOperations {
 public:
  using ThreadedFileOperations::ThreadedFileOperations;

  /// Whether this system has them.
  [[nodiscard]] static bool areThere();
  /// Whether an operation is one of these.
  [[nodiscard]] static bool owns(const FileOperationRef& operation);

  /// nullptr where the system makes none. REQUIRES areThere().
  FileOperationRef create() override;

 private:
  [[nodiscard]] bool isOwn(const FileOperationRef& operation) const override { return owns(operation); }
  OSStatus begin(CopyRequest request) override;
};

}  // namespace platform
