#include "platform/macos/MacDesktopApplication.h"

#include <CoreGraphics/CGSession.h>

#include "platform/macos/CoreFoundationReference.h"

namespace platform {

std::string MacDesktopApplication::moduleName() {
  return "libQuillmendWindow.dylib";
}

std::optional<std::string> MacDesktopApplication::whyNoDisplay() {
  if (CoreFoundationReference<CFDictionaryRef>(CGSessionCopyCurrentDictionary())) return std::nullopt;
  return "this process is in no session of the window server";
}

}  // namespace platform
