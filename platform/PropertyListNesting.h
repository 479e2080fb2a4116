#pragma once

#include <cstddef>
#include <string_view>

#include "platform/PropertyLists.h"

namespace platform {

/// Deeper nesting than any application writes; what is deeper is taken for an attack.
inline constexpr std::size_t kGreatestNesting = 512;
/// More values than any application writes into a file of kLargestPropertyList, unless a reader says
/// otherwise; they take some 20 MB of memory. A binary property list may refer to one value from many places,
/// so that a small file can stand for more than any memory.
inline constexpr std::size_t kMostValues = PropertyListLimits{}.values;

/// Looks at the bytes of a property list before a parser that recurses does. Answers 0; EINVAL when its
/// arrays and dictionaries are nested deeper than kGreatestNesting, or a binary one's objects lie outside it
/// or contain themselves; EFBIG when it has or stands for more than that many values (keys count, as do
/// objects that nothing refers to). Uses a constant amount of stack, and memory for as many values at most.
[[nodiscard]] int nestingFault(std::string_view bytes, std::size_t mostValues = kMostValues);

}  // namespace platform
