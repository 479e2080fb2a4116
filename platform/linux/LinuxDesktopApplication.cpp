#include "platform/linux/LinuxDesktopApplication.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/Platform.h"

namespace platform {
namespace {

using WindowMain = int(int argc, char** argv);
using WindowTerminate = void();

int complain(std::string what) {
  std::replace(what.begin(), what.end(), '\n', ' ');
  std::fprintf(stderr, "Quillmend: %s\n", what.c_str());
  return 1;
}

bool hasValue(const char* variable) {
  const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): never set while it runs
  return value != nullptr && *value != '\0';
}

std::string loaderMessage() {
  const char* const message = ::dlerror();  // NOLINT(concurrency-mt-unsafe): a thread's own in this library
  return message == nullptr ? "unknown reason" : message;
}

int call(WindowMain* windowMain, std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return windowMain(static_cast<int>(arguments.size()), pointers.data());
}

}  // namespace

int LinuxDesktopApplication::run(const std::vector<std::string>& arguments) {
  if (!hasValue("WAYLAND_DISPLAY") && !hasValue("DISPLAY")) {
    return complain("no display: neither WAYLAND_DISPLAY nor DISPLAY is set");
  }
  const std::string path = current().mainBundle.path() + "/Contents/Frameworks/libQuillmendWindow.so";
  // Never unloaded: a toolkit leaves exit handlers behind.
  module_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module_ == nullptr) return complain("no window module: " + loaderMessage());
  auto* const windowMain = reinterpret_cast<WindowMain*>(::dlsym(module_, "QuillmendWindowMain"));
  if (windowMain == nullptr) return complain("no window module: " + loaderMessage());
  return call(windowMain, arguments);
}

void LinuxDesktopApplication::terminate() {
  if (module_ == nullptr) return;
  auto* const windowTerminate =
      reinterpret_cast<WindowTerminate*>(::dlsym(module_, "QuillmendWindowTerminate"));
  if (windowTerminate != nullptr) windowTerminate();
}

}  // namespace platform
