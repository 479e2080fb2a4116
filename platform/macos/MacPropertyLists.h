#pragma once

#include "platform/PropertyLists.h"

namespace platform {

/// Property lists by Core Foundation (CFPropertyList). What CoreFoundationValues.h says cannot be told is
/// EINVAL, so that a file with such a value is never written back without it. The bytes are looked at before
/// Core Foundation is given them (PropertyListNesting.h), because its parser recurses; a property list in the
/// older form of NeXT has the parser's own limits.
class MacPropertyLists : public PropertyLists {
 public:
  foundation::Result<foundation::PropertyList> parse(std::string_view bytes,
                                                     const PropertyListLimits& limits = {}) override;
  foundation::Result<std::string> serialize(const foundation::PropertyList& value,
                                            PropertyListFormat format) override;
};

}  // namespace platform
