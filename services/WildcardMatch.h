#pragma once

#include <string_view>

/// Whether a name is like a pattern, as the Mac's isLike: "*" stands for any characters, none included, "?"
/// for exactly one, everything else for itself. The case of letters matters, a leading point is a character
/// like any other. Characters are UTF-8 ones; each byte that is not part of valid UTF-8 counts as one.
[[nodiscard]] bool isLike(std::string_view name, std::string_view pattern);
