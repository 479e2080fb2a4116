#pragma once

#include "platform/PropertyLists.h"

namespace platform {

/// Property lists by libplist.
class LibplistPropertyLists : public PropertyLists {
 public:
  foundation::Result<foundation::PropertyList> parse(std::string_view bytes) override;
  foundation::Result<std::string> serialize(const foundation::PropertyList& value,
                                            PropertyListFormat format) override;
};

}  // namespace platform
