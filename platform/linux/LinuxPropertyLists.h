#pragma once

#include "platform/PropertyLists.h"

namespace platform {

/// XML property lists by expat (XmlPropertyListReader.h), binary ones by BinaryPropertyList; both read and
/// written in time in proportion to their bytes. ENOSYS for XML where expat is not installed.
///
/// Of a key that stands twice in a dictionary the last value counts, at the place of the first. Dates keep
/// their fraction of a second in the binary format; XML has whole seconds, so it is cut there. A list that
/// holds what no PropertyList can (BinaryPropertyList::value, XmlPropertyListReader.h) is ENOTSUP; a set is
/// read as an array. In the texts of a binary list U+FFFD stands for what is no character
/// (BinaryPropertyList::text).
///
/// EINVAL, and nothing is written, for texts and keys that are not UTF-8 or have a zero character, in XML
/// also for those that XML cannot hold (isXmlText), and for what is nested deeper than kGreatestNesting.
class LinuxPropertyLists : public PropertyLists {
 public:
  foundation::Result<foundation::PropertyList> parse(std::string_view bytes,
                                                     const PropertyListLimits& limits = {}) override;
  foundation::Result<std::string> serialize(const foundation::PropertyList& value,
                                            PropertyListFormat format) override;
};

}  // namespace platform
