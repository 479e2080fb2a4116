#include "platform/linux/LinuxDesktopApplication.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <system_error>
#include <utility>

#include "platform/Platform.h"
#include "platform/posix/ExitWatch.h"

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

template <typename Value>
bool readAt(std::ifstream& file, std::uint64_t offset, Value& value) {
  file.seekg(static_cast<std::streamoff>(offset));
  return static_cast<bool>(file.read(reinterpret_cast<char*>(&value), sizeof value));
}

/// Part of what a library's headers (elf(5)) say is missing at the end of its file, as it is where copying
/// was cut short. dlopen(3) does not look, and whoever touches what is not there is ended by SIGBUS.
bool isCutShort(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  ElfW(Ehdr) header{};
  if (!readAt(file, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  for (std::uint64_t index = 0; index < header.e_phnum; ++index) {
    ElfW(Phdr) segment{};
    if (!readAt(file, header.e_phoff + index * sizeof segment, segment)) return true;
    if (segment.p_type == PT_LOAD && segment.p_offset + segment.p_filesz > size) return true;
  }
  return false;
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

int LinuxDesktopApplication::run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
                                 const std::function<void()>& displayWasLost) {
  if (!hasValue("WAYLAND_DISPLAY") && !hasValue("DISPLAY")) {
    return complain("no display: neither WAYLAND_DISPLAY nor DISPLAY is set");
  }
  const std::string path = current().mainBundle.path() + "/Contents/Frameworks/libQuillmendWindow.so";
  if (isCutShort(path)) return complain("no window module: " + path + ": its end is missing");
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
void LinuxDesktopApplication::exitWithoutDisplay(const std::function<void()>& displayWasLost) {
  applicationDidEnd();
  displayWasLost();
  interruption_.deliver();
  ::_exit(1);
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
