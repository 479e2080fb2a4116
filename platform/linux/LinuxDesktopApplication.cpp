#include "platform/linux/LinuxDesktopApplication.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/Platform.h"

namespace platform {
namespace {

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

int call(WindowModuleMain* windowMain, std::vector<std::string> arguments, WindowHost& host,
         outlets::InterfaceOwner& owner) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return windowMain(static_cast<int>(arguments.size()), pointers.data(), &host, &owner);
}

}  // namespace

int LinuxDesktopApplication::run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner) {
  if (!hasValue("WAYLAND_DISPLAY") && !hasValue("DISPLAY")) {
    return complain("no display: neither WAYLAND_DISPLAY nor DISPLAY is set");
  }
  const std::string path = current().mainBundle.path() + "/Contents/Frameworks/libQuillmendWindow.so";
  // Never unloaded: a toolkit leaves exit handlers behind.
  void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return complain("no window module: " + loaderMessage());
  auto* const windowMain = reinterpret_cast<WindowModuleMain*>(::dlsym(module, kWindowModuleMain));
  if (windowMain == nullptr) return complain("no window module: " + loaderMessage());
  interruption_.defer();
  return call(windowMain, arguments, *this, owner);
}

void LinuxDesktopApplication::terminate() {
  if (auto* const application = application_.load()) application->terminate();
}

int LinuxDesktopApplication::workDescriptor() {
  return mainThread_.workDescriptor();
}

void LinuxDesktopApplication::serveQueued() {
  mainThread_.serveQueued();
}

int LinuxDesktopApplication::endRequestDescriptor() {
  return interruption_.requestDescriptor();
}

void LinuxDesktopApplication::applicationDidStart(WindowApplication& application) {
  application_ = &application;
  mainThread_.setEventLoop(&application);
  clock_.setEventLoop(&application);
  alerts_.setPanels(&application);
}

void LinuxDesktopApplication::applicationDidEnd() {
  alerts_.setPanels(nullptr);
  clock_.setEventLoop(nullptr);
  mainThread_.setEventLoop(nullptr);
  application_ = nullptr;
}

}  // namespace platform
