#pragma once

#include <cstdint>

namespace platform {

/// The system's number of this thread: gettid(2), on a Mac pthread_threadid_np(3).
[[nodiscard]] std::uint64_t threadNumber();

}  // namespace platform
