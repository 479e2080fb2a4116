#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

/// Text is UTF-8 in std::string; bytes that are not valid UTF-8 pass through every operation unchanged.
namespace foundation {

class PropertyList;

/// One argument of a format: text, a number, or nothing (printed "(null)"). It is made for the call that it
/// is passed to: a text is not copied, and has to live as long as the argument.
class FormatArgument {
 public:
  FormatArgument(std::nullptr_t) : value_(std::monostate{}) {}  // NOLINT: implicit on purpose,
  FormatArgument(std::nullopt_t) : value_(std::monostate{}) {}  // NOLINT: a call reads like the
  FormatArgument(const char* text);                             // NOLINT: formats it fills
  FormatArgument(std::string_view text) : value_(text) {}       // NOLINT
  FormatArgument(const std::string& text) : value_(std::string_view(text)) {}  // NOLINT
  FormatArgument(const std::string&&) = delete;            // it would be gone before the call
  FormatArgument(const std::optional<std::string>& text);  // NOLINT
  FormatArgument(const std::optional<std::string>&&) = delete;
  FormatArgument(const PropertyList& value);         // NOLINT
  FormatArgument(double number) : value_(number) {}  // NOLINT
  template <std::integral T>
  FormatArgument(T number) {  // NOLINT
    if constexpr (std::is_signed_v<T>) {
      value_ = static_cast<std::int64_t>(number);
    } else {
      value_ = static_cast<std::uint64_t>(number);
    }
  }

  [[nodiscard]] const auto& value() const { return value_; }
  /// nullptr for what is no text, and for a property list.
  [[nodiscard]] const std::string_view* text() const { return std::get_if<std::string_view>(&value_); }

 private:
  std::variant<std::monostate, std::string_view, std::string, std::int64_t, std::uint64_t, double> value_;
};

/// Fills a format. Directives: %@ and %s (text), %d %i %u %x %X (whole numbers; the length modifiers h, l,
/// ll, q, z are accepted), %f %e %g with width and precision as in printf(3) ("%0.2f"), %c (a character), and
/// %% (a percent sign). An argument whose type does not fit its directive is printed in its own natural form.
///
/// A directive that has no argument left, and a percent sign that starts no known directive, are kept as they
/// stand: no argument is ever read that was not given. A text can therefore be formatted a second time, with
/// no arguments, whatever it holds; only each "%%" in it becomes "%".
[[nodiscard]] std::string formatText(std::string_view format, std::span<const FormatArgument> arguments);

/// The arguments of a format, in their order.
template <typename... Arguments>
[[nodiscard]] std::array<FormatArgument, sizeof...(Arguments)> formatArguments(
    const Arguments&... arguments) {
  return {FormatArgument(arguments)...};
}

template <typename... Arguments>
[[nodiscard]] std::string stringWithFormat(std::string_view format, const Arguments&... arguments) {
  return formatText(format, formatArguments(arguments...));
}

/// Without white space and line breaks at both ends (ASCII ones, U+0085, U+00A0, U+2028, U+2029 and the other
/// Unicode blanks).
[[nodiscard]] std::string trimmed(std::string_view text);

/// The same, as a part of the text that it was given.
[[nodiscard]] std::string_view trimmedPart(std::string_view text);

/// ASCII letters in lower case, everything else as it is.
[[nodiscard]] std::string lowercase(std::string_view text);

/// In capital letters, of every script, whatever the locale; a sharp s becomes SS. Where the system has no
/// table of letters only ASCII ones change.
[[nodiscard]] std::string uppercase(std::string_view text);

/// How many characters a text has as a Mac counts them, in UTF-16 units; each byte that is not part of valid
/// UTF-8 counts as one.
[[nodiscard]] std::size_t characterCount(std::string_view utf8);

/// One character of a text: its length in bytes and its number in Unicode. Of length 0 it is none.
struct Utf8Character {
  std::size_t length = 0;
  char32_t code = 0;
};

/// The character at the head of a text; none for an empty one and where no valid UTF-8 (RFC 3629) begins:
/// overlong forms, surrogates and what lies above U+10FFFF are not valid.
[[nodiscard]] Utf8Character firstCharacter(std::string_view text);

/// Appends a character by its number. REQUIRES one that is not above U+10FFFF.
void appendUtf8(std::string& text, char32_t code);

/// Whether all the bytes are valid UTF-8.
[[nodiscard]] bool isUtf8(std::string_view bytes);

}  // namespace foundation
