#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace platform {

/// In its scope this process gets no descriptor more; what is open stays.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const int lowest = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(lowest);
    const rlimit none{static_cast<rlim_t>(lowest), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace platform
