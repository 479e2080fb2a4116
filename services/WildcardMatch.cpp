#include "services/WildcardMatch.h"

#include <algorithm>
#include <cstddef>

#include "platform/foundation/Text.h"

namespace {

/// Such a byte is a character of its own wherever it stands.
bool isAscii(char byte) {
  return static_cast<unsigned char>(byte) < 0x80;
}

/// How many bytes the first character has.
std::size_t characterLength(std::string_view text) {
  if (isAscii(text.front())) return 1;
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc0 ? 2 : 1;
  return length <= text.size() && foundation::isUtf8(text.substr(0, length)) ? length : 1;
}

/// Byte for byte: a part of a character is like nothing.
bool beginAlike(std::string_view one, std::string_view other) {
  if (one.front() != other.front()) return false;
  if (isAscii(one.front())) return true;
  const std::size_t length = characterLength(one);
  return length == characterLength(other) && one.substr(0, length) == other.substr(0, length);
}

/// The next place in a name where what a "*" stands for may end, by whole characters: "?" behind it must not
/// begin in the middle of one. Places are passed over where the character that the pattern goes on with is
/// not; the name's size where there is none.
std::size_t nextEnd(std::string_view name, std::size_t from, std::string_view rest) {
  const std::size_t next = from + characterLength(name.substr(from));
  if (rest.empty() || rest.front() == '*' || rest.front() == '?' || !isAscii(rest.front())) return next;
  return std::min(name.find(rest.front(), next), name.size());
}

}  // namespace

bool isLike(std::string_view name, std::string_view pattern) {
  constexpr auto none = std::string_view::npos;
  std::size_t at = 0;       // in the name
  std::size_t wanted = 0;   // in the pattern
  std::size_t star = none;  // behind the last "*" met; what it stands for ends at `tried`
  std::size_t tried = 0;
  while (at < name.size()) {
    if (wanted < pattern.size() && pattern[wanted] == '*') {
      star = ++wanted;
      tried = at;
    } else if (wanted < pattern.size() && pattern[wanted] == '?') {
      at += characterLength(name.substr(at));
      ++wanted;
    } else if (wanted < pattern.size() && beginAlike(pattern.substr(wanted), name.substr(at))) {
      const std::size_t length = characterLength(name.substr(at));
      at += length;
      wanted += length;
    } else if (star != none) {
      tried = nextEnd(name, tried, pattern.substr(star));
      at = tried;
      wanted = star;
    } else {
      return false;
    }
  }
  const auto rest = pattern.substr(wanted);
  return std::all_of(rest.begin(), rest.end(), [](char c) { return c == '*'; });
}
