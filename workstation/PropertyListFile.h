#pragma once

#include <filesystem>
#include <string>

#include "platform/foundation/PropertyList.h"

namespace workstation {

enum class Encoding { xml, binary };

/// The bytes of a property-list file (libplist): XML 1.0 with Apple's DTD, or "bplist00".
[[nodiscard]] std::string encodedPropertyList(const foundation::PropertyList& value, Encoding encoding);

/// Writes such a file, replacing one that is there. Throws std::system_error.
void writePropertyList(const std::filesystem::path& file, const foundation::PropertyList& value,
                       Encoding encoding);

/// Writes a file's bytes, replacing one that is there. Throws std::system_error.
void writeFile(const std::filesystem::path& file, std::string_view bytes);

}  // namespace workstation
