#include "helpers/Report.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace helpers {
namespace {

std::string octal(unsigned char byte) {
  const auto digit = [byte](unsigned shift) { return static_cast<char>('0' + ((byte >> shift) & 7U)); };
  return {'\\', digit(6), digit(3), digit(0)};
}

std::string escapedAscii(char character) {
  switch (character) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      break;
  }
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F ? octal(byte) : std::string(1, character);
}

struct Character {
  std::size_t length = 0;  ///< 0 where no valid UTF-8 starts here
  std::uint32_t code = 0;
};

std::size_t sequenceLength(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE0 && first <= 0xEF) return 3;
  return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

Character characterAt(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = sequenceLength(first);
  if (length == 0 || text.size() < length) return {};
  std::uint32_t code = first & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0U) != 0x80U) return {};
    code = (code << 6U) | (byte & 0x3FU);
  }
  static constexpr std::array<std::uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kSmallest.at(length) || code > 0x10FFFF || surrogate) return {};
  return {length, code};
}

bool changesTheLine(std::uint32_t code) {
  return code < 0xA0 || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    if (static_cast<unsigned char>(text.front()) < 0x80) {
      line += escapedAscii(text.front());
      text.remove_prefix(1);
      continue;
    }
    const Character character = characterAt(text);
    const std::size_t length = character.length == 0 ? 1 : character.length;
    const bool plain = character.length > 0 && !changesTheLine(character.code);
    for (std::size_t i = 0; i < length; ++i) {
      line += plain ? std::string(1, text[i]) : octal(static_cast<unsigned char>(text[i]));
    }
    text.remove_prefix(length);
  }
  return line;
}

void Report::failure(std::string_view path, std::string_view reason) {
  anyFailure_ = true;
  writeLine(toolName_ + ": " + escaped(path) + ": " + std::string(reason) + "\n");
}

ExitStatus Report::stop(ExitStatus status, std::string_view message) {
  if (status != ExitStatus::done) anyFailure_ = true;
  writeLine(toolName_ + ": " + std::string(message) + "\n");
  return status;
}

/// The description of an error repeats its path, unescaped: only what follows it is wanted.
std::string Report::reasonOf(const foundation::Error& error) {
  const std::string prefix = error.path + ": ";
  if (!error.path.empty() && error.description.starts_with(prefix)) {
    return error.description.substr(prefix.size());
  }
  return error.description;
}

void Report::writeLine(const std::string& text) const {
  ssize_t count = -1;
  do {
    count = write(descriptor_, text.data(), text.size());
  } while (count < 0 && errno == EINTR);
}

foundation::Error errorWithReason(int code, std::string_view path, std::string_view reason) {
  return {code, std::string(path), std::string(path) + ": " + std::string(reason)};
}

}  // namespace helpers
