#pragma once

#include "platform/PropertyLists.h"

namespace support {

/// Property lists by libplist, which has nothing in common with the program's own readers and writers: the
/// measure of what others make of a list. Not for hostile ones: it recurses, and looks for keys one by one.
///
/// A zero character ends a text, and half a surrogate pair makes it empty. XML need not be well-formed.
class LibplistPropertyLists : public platform::PropertyLists {
 public:
  foundation::Result<foundation::PropertyList> parse(
      std::string_view bytes, const platform::PropertyListLimits& limits = {}) override;
  foundation::Result<std::string> serialize(const foundation::PropertyList& value,
                                            platform::PropertyListFormat format) override;
};

}  // namespace support
