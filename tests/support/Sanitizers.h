#pragma once

namespace support {

/// Whether this program runs under a sanitizer, which needs much memory of its own.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

}  // namespace support
