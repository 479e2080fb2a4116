#include <crt_externs.h>
#include <libproc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/posix/InheritedState.h"

namespace platform {

/// Only what is open is closed: a Mac's limit of descriptors may be none.
void closeDescriptorsFrom(int first) {
  const int size = ::proc_pidinfo(::getpid(), PROC_PIDLISTFDS, 0, nullptr, 0);
  if (size <= 0) return;
  std::vector<proc_fdinfo> open(static_cast<std::size_t>(size) / sizeof(proc_fdinfo));
  const int filled = ::proc_pidinfo(::getpid(), PROC_PIDLISTFDS, 0, open.data(), size);
  open.resize(filled <= 0 ? 0 : static_cast<std::size_t>(filled) / sizeof(proc_fdinfo));
  for (const proc_fdinfo& each : open) {
    if (each.proc_fd >= first) ::close(each.proc_fd);
  }
}

void forgetEnvironment() {
  static std::array<char*, 1> none = {nullptr};
  *_NSGetEnviron() = none.data();
}

/// A process has the name of its file here, after a restart too.
void forgetPlacesOfLibraries(char** arguments, const char* /*name*/) {
  constexpr std::array kPlaces = {"DYLD_LIBRARY_PATH", "DYLD_FRAMEWORK_PATH", "DYLD_FALLBACK_LIBRARY_PATH",
                                  "DYLD_FALLBACK_FRAMEWORK_PATH"};
  const auto isSet = [](const char* name) { return std::getenv(name) != nullptr; };
  if (std::none_of(kPlaces.begin(), kPlaces.end(), isSet)) return;
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> program{};
  if (::proc_pidpath(::getpid(), program.data(), static_cast<std::uint32_t>(program.size())) <= 0) return;
  std::array<char*, 1> none = {nullptr};
  ::execve(program.data(), arguments, none.data());
}

}  // namespace platform
