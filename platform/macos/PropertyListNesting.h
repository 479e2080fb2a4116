#pragma once

#include <cstddef>
#include <string_view>

#include "platform/PropertyLists.h"

namespace platform {

/// More values than any application writes into a file of kLargestPropertyList, unless a reader says
/// otherwise; they take some 20 MB of memory. A binary property list may refer to one value from many places,
/// so that a small file can stand for more than any memory.
inline constexpr std::size_t kMostValues = PropertyListLimits{}.values;

/// Looks at the bytes of a property list before Core Foundation's parser does, which recurses. Answers 0;
/// EINVAL when its arrays and dictionaries are nested deeper than kGreatestNesting, or a binary one is not
/// sound (BinaryPropertyList::open); EFBIG when it has or stands for more than that many values (keys count,
/// as do objects that nothing refers to). Uses a constant amount of stack; of memory none for XML, and for a
/// binary one a copy of it and twelve bytes for each object.
///
/// What is counted is what the parser sees: XML in which the two could take a different end for a tag, a
/// comment or an instruction is EINVAL. No writer of property lists makes zero bytes, angle brackets between
/// quotation marks, or a document type with declarations of its own; the last is how entities would get their
/// values, so that there are none but XML's five.
[[nodiscard]] int nestingFault(std::string_view bytes, std::size_t mostValues = kMostValues);

}  // namespace platform
