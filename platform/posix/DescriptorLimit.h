#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <cstddef>

namespace platform {

/// How many descriptors this process may have open at once.
[[nodiscard]] inline std::size_t mostDescriptors() {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : 0;
}

/// How many of them one part of the work may keep, which would like to have `most`: a quarter where there are
/// few, and at least one.
[[nodiscard]] inline std::size_t affordableDescriptors(std::size_t most) {
  constexpr std::size_t kPart = 4;
  return std::clamp<std::size_t>(mostDescriptors() / kPart, 1, most);
}

}  // namespace platform
