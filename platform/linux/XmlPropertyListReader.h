#pragma once

#include <cstddef>
#include <string_view>

#include "platform/foundation/PropertyList.h"
#include "platform/foundation/Result.h"

namespace platform {

/// An XML property list (Apple's PropertyList-1.0 DTD), read by expat, which is loaded on first use; ENOSYS
/// where it is not installed. In time in proportion to the bytes, whatever they are, and with no more stack
/// for one than for another. It is gone through twice: what is refused is refused before any of it is held.
///
/// EINVAL for what is no well-formed XML, is nested deeper than kGreatestNesting, or has another structure
/// than the DTD's, values that are none, a document type with declarations of its own, or a reference to an
/// entity that is not one of XML's five; no file is ever fetched. A list whose root is not within <plist> is
/// taken. Attributes count for nothing, nor does such a reference in one where a document type lies
/// elsewhere. Whole numbers are decimal, or hexadecimal behind "0x"; real ones that are too large are
/// infinite, and those that are too small are zero. The "=" at the end of data may be missing. ENOTSUP for a
/// list that is sound but for whole numbers beyond 64 bits and dates that no calendar has. EFBIG for more
/// than that many values (keys count), or where the parser would need more memory than six times the bytes,
/// as for the attributes of one tag by the thousand.
[[nodiscard]] foundation::Result<foundation::PropertyList> readXmlPropertyList(std::string_view bytes,
                                                                               std::size_t mostValues);

}  // namespace platform
