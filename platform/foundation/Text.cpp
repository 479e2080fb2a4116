#include "platform/foundation/Text.h"

#include <locale.h>  // NOLINT(modernize-deprecated-headers): newlocale is POSIX
#if __has_include(<xlocale.h>)
#include <xlocale.h>  // where a Mac has it
#endif
#include <wctype.h>  // NOLINT(modernize-deprecated-headers)

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/foundation/PropertyList.h"

namespace foundation {
namespace {

constexpr std::size_t kMaximumWidth = 1024;

/// One directive of a format: "%-08.2lf" has the flags "-0", the width 8, the precision 2 and the letter f.
struct Directive {
  std::string flags;
  std::optional<std::size_t> width;
  std::optional<std::size_t> precision;
  bool isLong = false;  ///< a length modifier asks for more than an int
  char letter = 0;
  std::size_t length = 0;  ///< characters of the format it takes, from its percent sign on; 0 when it is none
};

std::optional<std::size_t> readNumber(std::string_view text, std::size_t& at) {
  if (at >= text.size() || std::isdigit(static_cast<unsigned char>(text[at])) == 0) return std::nullopt;
  std::size_t number = 0;
  while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0) {
    number = std::min(number * 10 + static_cast<std::size_t>(text[at] - '0'), kMaximumWidth);
    ++at;
  }
  return number;
}

/// Reads the directive that begins with the percent sign at the head of the text.
Directive readDirective(std::string_view text) {
  Directive directive;
  std::size_t at = 1;
  while (at < text.size() && std::string_view("-+ 0#").find(text[at]) != std::string_view::npos) {
    directive.flags += text[at++];
  }
  directive.width = readNumber(text, at);
  if (at < text.size() && text[at] == '.') {
    ++at;
    directive.precision = readNumber(text, at).value_or(0);
  }
  while (at < text.size() && std::string_view("hlqzjt").find(text[at]) != std::string_view::npos) {
    directive.isLong = directive.isLong || text[at] != 'h';
    ++at;
  }
  if (at < text.size() && std::string_view("@sdiuxXoDUfFeEgGcCp%").find(text[at]) != std::string_view::npos) {
    directive.letter = text[at];
    // A percent sign stands for itself behind another alone: what lies between the two is text.
    directive.length = directive.letter == '%' && at > 1 ? 0 : at + 1;
  }
  return directive;
}

std::string printfDirective(const Directive& directive, std::string_view lengthAndLetter) {
  std::string text = "%" + directive.flags;
  if (directive.width) text += std::to_string(*directive.width);
  if (directive.precision) text += "." + std::to_string(*directive.precision);
  return text.append(lengthAndLetter);
}

template <typename Number>
std::string printNumber(const Directive& directive, std::string_view lengthAndLetter, Number number) {
  const std::string format = printfDirective(directive, lengthAndLetter);
  std::string text(2 * kMaximumWidth + 512, '\0');
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(text.data(), text.size(), format.c_str(), number);
#pragma GCC diagnostic pop
  text.resize(static_cast<std::size_t>(std::max(length, 0)));
  return text;
}

std::string padded(const Directive& directive, std::string text) {
  const std::size_t width = directive.width.value_or(0);
  if (text.size() >= width) return text;
  const std::string blanks(width - text.size(), ' ');
  return directive.flags.find('-') != std::string::npos ? text + blanks : blanks + text;
}

bool isRealNumberLetter(char letter) {
  return std::string_view("fFeEgG").find(letter) != std::string_view::npos;
}

/// Prints one argument; each overload stands for a kind of argument.
struct ArgumentPrinter {
  const Directive& directive;

  std::string operator()(std::monostate) const { return padded(directive, "(null)"); }
  std::string operator()(std::string_view text) const {
    const bool cut = directive.letter == 's' && directive.precision.has_value();
    return padded(directive, std::string(cut ? text.substr(0, *directive.precision) : text));
  }
  std::string operator()(std::int64_t number) const {
    switch (directive.letter) {
      case 'c':
        return padded(directive, std::string(1, static_cast<char>(number)));
      case 'u':
      case 'U':
      case 'x':
      case 'X':
      case 'o':
      case 'p':
        // A directive for unsigned numbers shows the 32-bit two's complement of a negative int, as printf
        // does.
        if (number < 0 && number >= INT32_MIN && !directive.isLong)
          return (*this)(std::uint64_t{static_cast<std::uint32_t>(number)});
        return (*this)(static_cast<std::uint64_t>(number));
      default:
        break;
    }
    if (isRealNumberLetter(directive.letter)) return (*this)(static_cast<double>(number));
    return printNumber(directive, "lld", static_cast<long long>(number));
  }
  std::string operator()(std::uint64_t number) const {
    if (isRealNumberLetter(directive.letter)) return (*this)(static_cast<double>(number));
    if (directive.letter == 'c') return padded(directive, std::string(1, static_cast<char>(number)));
    const bool keep = std::string_view("xXo").find(directive.letter) != std::string_view::npos;
    return printNumber(directive, keep ? std::string("ll") + directive.letter : std::string("llu"),
                       static_cast<unsigned long long>(number));
  }
  std::string operator()(double number) const {
    if (std::isnan(number)) return padded(directive, "nan");
    if (isRealNumberLetter(directive.letter)) return printNumber(directive, {&directive.letter, 1}, number);
    // Its own natural form: as many digits as tell it from its neighbours for a person.
    return printNumber(directive, directive.precision ? "g" : ".16g", number);
  }
};

/// How many bytes the character claims to have, and the bits of its number that the first byte gives.
Utf8Character announcedBy(unsigned char first) {
  if (first < 0x80) return {1, first};
  if (first >= 0xC2 && first <= 0xDF) return {2, first & 0x1FU};
  if (first >= 0xE0 && first <= 0xEF) return {3, first & 0x0FU};
  if (first >= 0xF0 && first <= 0xF4) return {4, first & 0x07U};
  return {};
}

constexpr std::array<std::string_view, 26> kBlanks = {" ",
                                                      "\t",
                                                      "\n",
                                                      "\v",
                                                      "\f",
                                                      "\r",
                                                      "\xC2\x85",
                                                      "\xC2\xA0",
                                                      "\xE1\x9A\x80",
                                                      "\xE2\x80\x80",
                                                      "\xE2\x80\x81",
                                                      "\xE2\x80\x82",
                                                      "\xE2\x80\x83",
                                                      "\xE2\x80\x84",
                                                      "\xE2\x80\x85",
                                                      "\xE2\x80\x86",
                                                      "\xE2\x80\x87",
                                                      "\xE2\x80\x88",
                                                      "\xE2\x80\x89",
                                                      "\xE2\x80\x8A",
                                                      "\xE2\x80\x8B",
                                                      "\xE2\x80\xA8",
                                                      "\xE2\x80\xA9",
                                                      "\xE2\x80\xAF",
                                                      "\xE2\x81\x9F",
                                                      "\xE3\x80\x80"};

/// Printable ASCII: the first byte of none of the blanks, and the last of none.
bool isVisibleAscii(char byte) {
  return byte > ' ' && byte < '\x7F';
}

/// How many bytes at the head of a text are ASCII, which most texts are to their end; eight are looked at at
/// a time.
std::size_t asciiLength(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::size_t length = 0;
  for (std::uint64_t eight = 0; text.size() - length >= sizeof eight; length += sizeof eight) {
    std::memcpy(&eight, text.data() + length, sizeof eight);
    if ((eight & kHighBits) != 0) break;
  }
  while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) ++length;
  return length;
}

char asciiCapital(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

/// A Mac may call it by its encoding alone; null where the system has neither.
locale_t localeOfLetters() {
  for (const char* const name : {"C.UTF-8", "UTF-8"}) {
    const locale_t letters = ::newlocale(LC_CTYPE_MASK, name, nullptr);
    if (letters != nullptr) return letters;
  }
  return nullptr;
}

}  // namespace

FormatArgument::FormatArgument(const char* text) {
  if (text != nullptr) value_ = std::string_view(text);
}

FormatArgument::FormatArgument(const std::optional<std::string>& text) {
  if (text) value_ = std::string_view(*text);
}

FormatArgument::FormatArgument(const PropertyList& value) : value_(value.description()) {}

std::string formatText(std::string_view format, std::span<const FormatArgument> arguments) {
  std::string text;
  std::size_t next = 0;
  while (!format.empty()) {
    const std::size_t percent = format.find('%');
    text.append(format.substr(0, percent));
    if (percent == std::string_view::npos) break;
    format.remove_prefix(percent);
    if (format.starts_with("%@") && next < arguments.size() && arguments[next].text() != nullptr) {
      text += *arguments[next++].text();  // nearly all directives are of this kind
      format.remove_prefix(2);
      continue;
    }
    const Directive directive = readDirective(format);
    if (directive.length == 0) {
      text += '%';
      format.remove_prefix(1);
      continue;
    }
    if (directive.letter == '%') {
      text += '%';
    } else if (next < arguments.size()) {
      text += std::visit(ArgumentPrinter{directive}, arguments[next++].value());
    } else {
      text.append(format.substr(0, directive.length));
    }
    format.remove_prefix(directive.length);
  }
  return text;
}

std::string trimmed(std::string_view text) {
  return std::string(trimmedPart(text));
}

std::string_view trimmedPart(std::string_view text) {
  const auto cutOne = [&](bool front) {
    if (text.empty() || isVisibleAscii(front ? text.front() : text.back())) return false;
    for (const std::string_view blank : kBlanks) {
      if (front ? text.starts_with(blank) : text.ends_with(blank)) {
        front ? text.remove_prefix(blank.size()) : text.remove_suffix(blank.size());
        return true;
      }
    }
    return false;
  };
  while (cutOne(true)) {
  }
  while (cutOne(false)) {
  }
  return text;
}

std::string lowercase(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return lower;
}

std::string uppercase(std::string_view text) {
  static const locale_t letters = localeOfLetters();
  constexpr char32_t kSharpS = 0xDF;
  std::string upper;
  while (!text.empty()) {
    const Utf8Character character = firstCharacter(text);
    const std::size_t length = std::max<std::size_t>(character.length, 1);
    if (character.code == kSharpS) {
      upper += "SS";
    } else if (character.length > 1 && letters != nullptr) {
      appendUtf8(upper, static_cast<char32_t>(::towupper_l(static_cast<wint_t>(character.code), letters)));
    } else {
      upper += asciiCapital(text.front());
    }
    text.remove_prefix(length);
  }
  return upper;
}

std::size_t characterCount(std::string_view utf8) {
  std::size_t count = 0;
  while (true) {
    const std::size_t ascii = asciiLength(utf8);
    count += ascii;
    utf8.remove_prefix(ascii);
    if (utf8.empty()) return count;
    const std::size_t length = std::max<std::size_t>(firstCharacter(utf8).length, 1);
    count += length == 4 ? 2 : 1;
    utf8.remove_prefix(length);
  }
}

Utf8Character firstCharacter(std::string_view text) {
  if (text.empty()) return {};
  Utf8Character character = announcedBy(static_cast<unsigned char>(text.front()));
  if (text.size() < character.length) return {};
  for (std::size_t at = 1; at < character.length; ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if ((byte & 0xC0U) != 0x80) return {};
    character.code = character.code << 6U | (byte & 0x3FU);
  }
  constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = character.code >= 0xD800 && character.code <= 0xDFFF;
  const bool isOutside = character.code < kSmallest.at(character.length) || character.code > 0x10FFFF;
  return isSurrogate || isOutside ? Utf8Character() : character;
}

bool isUtf8(std::string_view bytes) {
  while (true) {
    bytes.remove_prefix(asciiLength(bytes));
    if (bytes.empty()) return true;
    const std::size_t length = firstCharacter(bytes).length;
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
}

void appendUtf8(std::string& text, char32_t code) {
  if (code < 0x80) {
    text += static_cast<char>(code);
    return;
  }
  const unsigned following = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  const unsigned head = following == 1 ? 0xC0U : following == 2 ? 0xE0U : 0xF0U;
  text += static_cast<char>(head | code >> (6U * following));
  for (unsigned rest = following; rest > 0; --rest) {
    text += static_cast<char>(0x80U | (code >> (6U * (rest - 1)) & 0x3FU));
  }
}

}  // namespace foundation
