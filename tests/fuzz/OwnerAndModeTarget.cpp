#include <algorithm>

#include "helpers/FileMode.h"
#include "helpers/Tool.h"
#include "platform/foundation/Text.h"
#include "platform/posix/OwnerName.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

constexpr mode_t kAllBits = 07777;

void readMode(const std::string& text) {
  const auto mode = helpers::FileMode::parse(text);
  if (!mode) return;
  require(text.find_first_not_of("01234567ugoarwxXst+-=,") == std::string::npos, "only a mode is one");
  const bool isOctal = text.find_first_not_of("01234567") == std::string::npos;
  for (mode_t current = 0; current <= kAllBits; current += 0123) {
    for (const bool isFolder : {false, true}) {
      const mode_t given = mode->appliedTo(current, isFolder);
      require(given <= kAllBits, "a mode has twelve bits");
      const bool isExact = !isOctal || isFolder || given == std::stoul(text, nullptr, 8);
      require(isExact, "an octal mode of a file is exactly that");
      require(!isOctal || mode->appliedTo(given, isFolder) == given, "an octal mode given twice is the same");
    }
  }
}

void readOwner(const std::string& text) {
  const auto ownership = platform::ownershipNamed(text);
  if (!ownership) return;
  constexpr auto kLeave = static_cast<uid_t>(-1);
  require(ownership->owner || ownership->group, "something is to be given");
  require(ownership->owner != kLeave && ownership->group != kLeave, "nobody is the number that means leave");
  const bool namesGroup = text.find(':') != std::string::npos;
  require(namesGroup == ownership->group.has_value(), "a colon asks for a group, and nothing else does");
  require(text.starts_with(':') != ownership->owner.has_value(), "what precedes it is the owner");
}

}  // namespace

void readOwnerAndMode(std::string_view input) {
  const auto parts = pieces(input);
  readMode(parts.front());
  if (parts.size() > 1) readOwner(parts[1]);
  const std::string shown = helpers::escaped(input);
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  require(std::none_of(shown.begin(), shown.end(), isControl), "what is reported stays on its line");
  require(foundation::isUtf8(shown), "what is reported is text");
}

}  // namespace fuzz
