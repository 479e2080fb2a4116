#include "platform/posix/PosixDesktopApplication.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/Platform.h"
#include "platform/posix/ExitWatch.h"

namespace platform {
namespace {

int complain(std::string what) {
  std::replace(what.begin(), what.end(), '\n', ' ');
  std::fprintf(stderr, "Quillmend: %s\n", what.c_str());
  return 1;
}

int complainOfModule(const std::string& why) {
  return complain("no window module: " + why);
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

int PosixDesktopApplication::run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
                                 const std::function<void()>& displayWasLost) {
  if (const auto why = whyNoDisplay()) return complain("no display: " + *why);
  const std::string path = current().mainBundle.path() + "/Contents/Frameworks/" + moduleName();
  if (const auto why = whyNotLoaded(path)) return complainOfModule(*why);
  // Never unloaded: a toolkit leaves exit handlers behind.
  void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return complainOfModule(loaderMessage());
  auto* const windowMain = reinterpret_cast<WindowModuleMain*>(::dlsym(module, kWindowModuleMain));
  if (windowMain == nullptr) return complainOfModule(loaderMessage());
  interruption_.defer();
  const ExitWatch watch([&] { exitWithoutDisplay(displayWasLost); });
  return call(windowMain, arguments, *this, owner);
}

/// Where the toolkit has called exit(3) there is no way back into run(), and it is not to be used any more.
void PosixDesktopApplication::exitWithoutDisplay(const std::function<void()>& displayWasLost) {
  applicationDidEnd();
  displayWasLost();
  interruption_.deliver();
  ::_exit(1);
}

void PosixDesktopApplication::terminate() {
  if (auto* const application = application_.load()) application->terminate();
}

int PosixDesktopApplication::workDescriptor() {
  return mainThread_.workDescriptor();
}

void PosixDesktopApplication::serveQueued() {
  mainThread_.serveQueued();
}

int PosixDesktopApplication::endRequestDescriptor() {
  return interruption_.requestDescriptor();
}

void PosixDesktopApplication::applicationDidStart(WindowApplication& application) {
  application_ = &application;
  mainThread_.setEventLoop(&application);
  clock_.setEventLoop(&application);
  alerts_.setPanels(&application);
}

void PosixDesktopApplication::applicationDidEnd() {
  alerts_.setPanels(nullptr);
  clock_.setEventLoop(nullptr);
  mainThread_.setEventLoop(nullptr);
  application_ = nullptr;
}

}  // namespace platform
