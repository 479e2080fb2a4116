#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/ProcessTable.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

int pollOnce(int descriptor, std::chrono::milliseconds timeout) {
  pollfd wait{descriptor, POLLIN, 0};
  const auto bounded = std::clamp<std::int64_t>(timeout.count(), 0, 1'000'000'000);
  return ::poll(&wait, 1, static_cast<int>(bounded));
}

}  // namespace

Result<ProcessHandle> ProcessHandle::open(const ProcessTable& table, const ProcessInfo& seen) {
  UniqueDescriptor descriptor = descriptorOf(seen.pid);
  if (!descriptor) return systemError(errno, seen.executable);
  const std::optional<ProcessInfo> now = table.process(seen.pid);
  if (!now || !isSame(seen, *now)) return systemError(ESRCH, seen.executable);
  return ProcessHandle(seen, std::move(descriptor));
}

bool ProcessHandle::waitForExit(std::chrono::milliseconds timeout) const {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    const int ready = pollOnce(descriptor_.get(), left);
    if (ready > 0) return true;
    if (ready == 0 && left.count() <= 0) return false;
    if (ready < 0 && errno != EINTR) return false;
  }
}

}  // namespace platform
