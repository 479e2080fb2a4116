#pragma once

#include "platform/DesktopApplication.h"

namespace platform {

/// The desktop application in a module of its own, so that a run without a window never loads a toolkit: the
/// bundle's Contents/Frameworks/libQuillmendWindow.so, loaded by dlopen(3), whose function
///
///     extern "C" int QuillmendWindowMain(int argc, char** argv);
///
/// runs the application and answers its exit status. `argv` ends with a null pointer and may be changed. Its
/// function
///
///     extern "C" void QuillmendWindowTerminate();
///
/// may be called on any thread while the first one runs, and makes it return soon.
///
/// A display is what $WAYLAND_DISPLAY or $DISPLAY names. Without one, without the module, or without the
/// function in it, one line that begins with "Quillmend: " goes to standard error and the status is 1.
class LinuxDesktopApplication : public DesktopApplication {
 public:
  int run(const std::vector<std::string>& arguments) override;
  void terminate() override;

 private:
  void* module_ = nullptr;
};

}  // namespace platform
