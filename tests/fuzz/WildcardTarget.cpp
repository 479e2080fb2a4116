#include "platform/foundation/Text.h"
#include "services/WildcardMatch.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

constexpr std::size_t kLongest = 300;  // the plain matcher takes the product of both lengths

std::vector<std::string> charactersOf(std::string_view text) {
  std::vector<std::string> characters;
  while (!text.empty()) {
    const std::size_t length = std::max<std::size_t>(foundation::firstCharacter(text).length, 1);
    characters.emplace_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return characters;
}

/// By a table of which beginning of the name is like which beginning of the pattern.
bool isPlainlyLike(std::string_view nameText, std::string_view patternText) {
  const auto name = charactersOf(nameText);
  const auto pattern = charactersOf(patternText);
  std::vector<bool> row(name.size() + 1, false);
  row[0] = true;
  for (const std::string& wanted : pattern) {
    std::vector<bool> next(name.size() + 1, false);
    next[0] = row[0] && wanted == "*";
    for (std::size_t at = 1; at <= name.size(); ++at) {
      const bool isOne = wanted == "?" || wanted == name[at - 1];
      next[at] = wanted == "*" ? next[at - 1] || row[at] : row[at - 1] && isOne;
    }
    row = std::move(next);
  }
  return row.back();
}

}  // namespace

void matchWildcards(std::string_view input) {
  const auto parts = pieces(input);
  const std::string& pattern = parts.front();
  const std::string name = parts.size() > 1 ? parts[1] : "";
  const bool answer = isLike(name, pattern);
  if (pattern.size() > kLongest || name.size() > kLongest) return;
  require(answer == isPlainlyLike(name, pattern), "both matchers agree");
}

}  // namespace fuzz
