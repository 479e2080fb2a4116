#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>

namespace support {

/// While it lives this process can open so many descriptors more, and no other.
class FewDescriptors {
 public:
  explicit FewDescriptors(rlim_t more) {
    const int free = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (free < 0 || ::getrlimit(RLIMIT_NOFILE, &before_) != 0) throw std::runtime_error("no descriptors");
    ::close(free);
    const rlimit few{static_cast<rlim_t>(free) + more, before_.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) throw std::runtime_error("setrlimit");
  }
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace support
