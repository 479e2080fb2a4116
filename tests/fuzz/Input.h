#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// Ends the process, with what did not hold, unless it holds.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "\nThis does not hold: %s\n", what);
  std::abort();
}

/// The input cut at its zero bytes; one piece at least. Seeds are easily made so: printf 'a\0b'.
inline std::vector<std::string> pieces(std::string_view input) {
  std::vector<std::string> pieces;
  while (true) {
    const std::size_t end = input.find('\0');
    pieces.emplace_back(input.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    input.remove_prefix(end + 1);
  }
}

}  // namespace fuzz
