#pragma once

#include <string>

#include "platform/foundation/PropertyList.h"

namespace platform {

/// A value as an XML property list in the layout that Apple's own programs give it, in time in proportion to
/// it. Of a date whole seconds are written, cut downwards; a reference (Uid) as the dictionary that Apple's
/// tools make of it. REQUIRES texts that can stand in XML (isXmlText) and reasonable nesting.
[[nodiscard]] std::string xmlPropertyList(const foundation::PropertyList& value);

/// Whether XML 1.0 can hold a text: it is UTF-8 without control characters other than tabulators and line
/// ends, and without U+FFFE and U+FFFF.
[[nodiscard]] bool isXmlText(const std::string& text);

}  // namespace platform
