#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Bytes in the 64 characters of RFC 4648, filled up with "=" to a multiple of four.
[[nodiscard]] std::string base64(std::string_view bytes);

/// The bytes again; white space counts for nothing, and the "=" at the end may be missing, as other readers
/// let them. nullopt for another character, for "=" anywhere but at the end or more than belong there, and
/// where one character is left that makes no byte.
[[nodiscard]] std::optional<std::string> fromBase64(std::string_view text);

}  // namespace platform
