#pragma once

#include "platform/PropertyLists.h"

namespace platform {

/// Property lists by libplist, which is loaded on first use; ENOSYS where it is not installed.
///
/// Of a key that stands twice in a dictionary the last value counts, at the place of the first. Dates keep
/// their fraction of a second in the binary format; XML has whole seconds, so it is cut there. A zero byte
/// ends a text that is read. Texts and keys with a zero byte, or that are not UTF-8, cannot be written
/// (EINVAL), as cannot what is nested deeper than kGreatestNesting (PropertyListNesting.h), which is not read
/// either.
class LibplistPropertyLists : public PropertyLists {
 public:
  foundation::Result<foundation::PropertyList> parse(std::string_view bytes,
                                                     const PropertyListLimits& limits = {}) override;
  foundation::Result<std::string> serialize(const foundation::PropertyList& value,
                                            PropertyListFormat format) override;
};

}  // namespace platform
