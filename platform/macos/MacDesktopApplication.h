#pragma once

#include "platform/posix/PosixDesktopApplication.h"

namespace platform {

/// The window module is libQuillmendWindow.dylib. A display is a session of the window server
/// (CGSessionCopyCurrentDictionary), which a process over ssh or of the system's launcher lacks.
class MacDesktopApplication : public PosixDesktopApplication {
 public:
  using PosixDesktopApplication::PosixDesktopApplication;

 protected:
  std::string moduleName() override;
  std::optional<std::string> whyNoDisplay() override;
};

}  // namespace platform
