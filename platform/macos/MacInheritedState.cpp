#include <crt_externs.h>
#include <libproc.h>
#include <unistd.h>

#include <array>
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

}  // namespace platform
