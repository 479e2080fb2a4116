#pragma once

#include <cstddef>
#include <string_view>

namespace platform {

/// Deeper nesting than any application writes; what is deeper is taken for an attack.
inline constexpr std::size_t kGreatestNesting = 512;
/// As many values as the largest file can hold one by one. A binary property list may refer to one value from
/// many places, so that a small file can stand for more than any memory.
inline constexpr std::size_t kMostValues = 10'000'000;

/// Looks at the bytes of a property list, before a parser that recurses does, whether its arrays and
/// dictionaries are nested at most kGreatestNesting deep and stand for at most kMostValues values. A binary
/// one whose objects lie outside it or contain themselves is none. Uses a constant amount of stack.
[[nodiscard]] bool isReasonablyNested(std::string_view bytes);

}  // namespace platform
