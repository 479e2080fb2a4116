#include "platform/macos/MacDesktopApplication.h"

#include <CoreGraphics/CGSession.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/Platform.h"
#include "platform/macos/CoreFoundationReference.h"
#include "platform/posix/ExitWatch.h"

namespace platform {
namespace {

int complain(std::string what) {
  std::replace(what.begin(), what.end(), '\n', ' ');
  std::fprintf(stderr, "Quillmend: %s\n", what.c_str());
  return 1;
}

bool hasDisplay() {
  return static_cast<bool>(CoreFoundationReference<CFDictionaryRef>(CGSessionCopyCurrentDictionary()));
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

int MacDesktopApplication::run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
                               const std::function<void()>& displayWasLost) {
  if (!hasDisplay()) return complain("no display: this process is in no session of the window server");
  const std::string path = current().mainBundle.path() + "/Contents/Frameworks/libQuillmendWindow.dylib";
  // Never unloaded: a toolkit leaves exit handlers behind.
  void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return complain("no window module: " + loaderMessage());
  auto* const windowMain = reinterpret_cast<WindowModuleMain*>(::dlsym(module, kWindowModuleMain));
  if (windowMain == nullptr) return complain("no window module: " + loaderMessage());
  interruption_.defer();
  const ExitWatch watch([&] { exitWithoutDisplay(displayWasLost); });
  return call(windowMain, arguments, *this, owner);
}

/// Where the toolkit has called exit(3) there is no way back into run(), and it is not to be used any more.
void MacDesktopApplication::exitWithoutDisplay(const std::function<void()>& displayWasLost) {
  applicationDidEnd();
  displayWasLost();
  interruption_.deliver();
  ::_exit(1);
}

void MacDesktopApplication::terminate() {
  if (auto* const application = application_.load()) application->terminate();
}

int MacDesktopApplication::workDescriptor() {
  return mainThread_.workDescriptor();
}

void MacDesktopApplication::serveQueued() {
  mainThread_.serveQueued();
}

int MacDesktopApplication::endRequestDescriptor() {
  return interruption_.requestDescriptor();
}

void MacDesktopApplication::applicationDidStart(WindowApplication& application) {
  application_ = &application;
  mainThread_.setEventLoop(&application);
  clock_.setEventLoop(&application);
  alerts_.setPanels(&application);
}

void MacDesktopApplication::applicationDidEnd() {
  alerts_.setPanels(nullptr);
  clock_.setEventLoop(nullptr);
  mainThread_.setEventLoop(nullptr);
  application_ = nullptr;
}

}  // namespace platform
