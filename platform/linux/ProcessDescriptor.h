#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// pidfd_open(2): a descriptor that stands for one process and no later one of its number, and is readable
/// when it has ended. Called by number: the header of glibc 2.36 cannot be used from C++.
[[nodiscard]] inline UniqueDescriptor openProcess(pid_t process) {
  return UniqueDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0U)));
}

/// pidfd_send_signal(2). Answers whether the signal was sent.
inline bool sendSignal(const UniqueDescriptor& process, int signal) {
  return ::syscall(SYS_pidfd_send_signal, process.get(), signal, nullptr, 0U) == 0;
}

}  // namespace platform
