#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Bytes in the 64 characters of RFC 4648, filled up with "=" to a multiple of four.
[[nodiscard]] std::string base64(std::string_view bytes);

/// The bytes again; white space counts for nothing. nullopt for another character, and where what is left is
/// no multiple of four or has "=" anywhere but at its end.
[[nodiscard]] std::optional<std::string> fromBase64(std::string_view text);

}  // namespace platform
