#pragma once

namespace support {

/// Whether this program runs under the sanitizer for threads.
#if defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitizedForThreads = true;
#elif defined(__has_feature)
constexpr bool kIsSanitizedForThreads = __has_feature(thread_sanitizer);
#else
constexpr bool kIsSanitizedForThreads = false;
#endif

/// Whether this program runs under a sanitizer, which needs much memory of its own.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = kIsSanitizedForThreads || __has_feature(address_sanitizer);
#else
constexpr bool kIsSanitized = kIsSanitizedForThreads;
#endif

}  // namespace support
