#pragma once

#include "platform/posix/PosixDesktopApplication.h"

namespace platform {

/// The window module is libQuillmendWindow.so. A display is what $WAYLAND_DISPLAY or $DISPLAY names.
class LinuxDesktopApplication : public PosixDesktopApplication {
 public:
  using PosixDesktopApplication::PosixDesktopApplication;

 protected:
  std::string moduleName() override;
  std::optional<std::string> whyNoDisplay() override;
  std::optional<std::string> whyNotLoaded(const std::string& module) override;
};

}  // namespace platform
