#include "platform/posix/ReadableWait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace platform {

using std::chrono::ceil;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool waitUntilReadable(MainThread& mainThread, int descriptor, std::optional<milliseconds> limit) {
  if (mainThread.isCurrent()) return mainThread.serveUntilReadable(descriptor, limit);
  const auto end = steady_clock::now() + limit.value_or(milliseconds(0));
  pollfd watched{descriptor, POLLIN, 0};
  while (true) {
    const auto rest = std::max(ceil<milliseconds>(end - steady_clock::now()), milliseconds(0));
    const int ready = ::poll(&watched, 1, limit ? static_cast<int>(rest.count()) : -1);
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

}  // namespace platform
