#include <cstdlib>

#include "platform/foundation/Text.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

using foundation::FormatArgument;

/// A piece's first letter tells the kind of argument it is.
FormatArgument argumentOf(const std::string& piece) {
  const char* const rest = piece.empty() ? piece.c_str() : piece.c_str() + 1;
  switch (piece.empty() ? '\0' : piece.front()) {
    case 'n':
      return nullptr;
    case 'i':
      return std::strtoll(rest, nullptr, 0);
    case 'u':
      return std::strtoull(rest, nullptr, 0);
    case 'f':
      return std::strtod(rest, nullptr);
    default:
      return std::string_view(piece).substr(piece.empty() ? 0 : 1);
  }
}

std::string withSinglePercentSigns(std::string_view text) {
  std::string single;
  for (std::size_t at = 0; at < text.size(); ++at) {
    single += text[at];
    if (text.substr(at).starts_with("%%")) ++at;
  }
  return single;
}

void lookAtText(const std::string& text) {
  const std::string inner = foundation::trimmed(text);
  require(foundation::trimmed(inner) == inner, "nothing is left to trim");
  require(text.find(inner) != std::string::npos, "trimming leaves a part of the text");
  require(foundation::characterCount(text) <= text.size(), "a character has a byte at least");
  require(foundation::lowercase(text).size() == text.size(), "small letters are as long");
  require(!foundation::isUtf8(text) || foundation::isUtf8(foundation::uppercase(text)),
          "capital letters are text");
}

}  // namespace

void fillFormat(std::string_view input) {
  const auto parts = pieces(input);
  std::vector<FormatArgument> arguments;
  for (std::size_t at = 1; at < parts.size(); ++at) arguments.push_back(argumentOf(parts[at]));
  const std::string text = foundation::formatText(parts.front(), arguments);
  require(foundation::formatText(text, {}) == withSinglePercentSigns(text),
          "a text that is formatted again loses one of two percent signs and nothing else");
  lookAtText(parts.front());
}

}  // namespace fuzz
