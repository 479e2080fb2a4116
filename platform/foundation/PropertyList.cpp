#include "platform/foundation/PropertyList.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>

#include "platform/foundation/Text.h"

namespace foundation {
namespace {

/// A key or text inside a description stands bare when it is a plain word, else between quotation marks.
std::string quotedIfNeeded(const std::string& text) {
  const auto plain = [](char letter) {
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_' || letter == '.' ||
           letter == '/' || letter == '$' || letter == ':';
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), plain)) return text;
  std::string quoted = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') quoted += '\\';
    if (letter == '\n') {
      quoted += "\\n";
    } else {
      quoted += letter;
    }
  }
  return quoted + '"';
}

std::string describe(const PropertyList& value, std::size_t depth);

std::string describeNested(const PropertyList& value, std::size_t depth) {
  if (const auto* text = value.as<std::string>()) return quotedIfNeeded(*text);
  if (value.as<Date>() != nullptr) return "\"" + describe(value, depth) + "\"";
  return describe(value, depth);
}

struct Describer {
  std::size_t depth;
  [[nodiscard]] std::string indent(std::size_t levels) const { return std::string(4 * levels, ' '); }

  std::string operator()(const PropertyList::Dictionary& dictionary) const {
    std::string text = "{\n";
    for (const auto& [key, value] : dictionary) {
      text += indent(depth + 1) + quotedIfNeeded(key) + " = " + describeNested(value, depth + 1) + ";\n";
    }
    return text + indent(depth) + "}";
  }
  std::string operator()(const PropertyList::Array& array) const {
    std::string text = "(\n";
    for (std::size_t at = 0; at < array.size(); ++at) {
      text += indent(depth + 1) + describeNested(array[at], depth + 1);
      text += at + 1 < array.size() ? ",\n" : "\n";
    }
    return text + indent(depth) + ")";
  }
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(const PropertyList::Data& data) const {
    std::string text = "<";
    for (const char byte : data.bytes) text += stringWithFormat("%02x", static_cast<unsigned char>(byte));
    return text + ">";
  }
  std::string operator()(bool flag) const { return flag ? "1" : "0"; }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(std::uint64_t number) const { return std::to_string(number); }
  std::string operator()(double number) const { return stringWithFormat("%0.16g", number); }
  std::string operator()(Date date) const { return date.description(); }
  std::string operator()(PropertyList::Uid uid) const { return std::to_string(uid.value); }
};

std::string describe(const PropertyList& value, std::size_t depth) {
  return std::visit(Describer{depth}, value.value());
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0) text.remove_prefix(1);
  return text;
}

bool textIsTrue(std::string_view text) {
  text = withoutLeadingBlanks(text);
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  while (!text.empty() && text.front() == '0') text.remove_prefix(1);
  return !text.empty() && std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

using Integers = std::numeric_limits<std::int64_t>;

std::int64_t integerOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  if (text.starts_with("+-")) return 0;
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc::result_out_of_range) return number;
  return text.starts_with('-') ? Integers::min() : Integers::max();
}

/// Compared before it is cast: what an integer cannot hold has no defined cast.
std::int64_t integerOfFraction(double number) {
  constexpr double kBeyond = 9223372036854775808.0;
  if (std::isnan(number)) return 0;
  if (number >= kBeyond) return Integers::max();
  return number < -kBeyond ? Integers::min() : static_cast<std::int64_t>(number);
}

}  // namespace

const PropertyList* PropertyList::find(std::string_view key) const {
  const auto* dictionary = as<Dictionary>();
  if (dictionary == nullptr) return nullptr;
  const auto entry = std::find_if(dictionary->begin(), dictionary->end(),
                                  [key](const auto& candidate) { return candidate.first == key; });
  return entry == dictionary->end() ? nullptr : &entry->second;
}

std::string PropertyList::stringFor(std::string_view key) const {
  const PropertyList* const value = find(key);
  const auto* const text = value == nullptr ? nullptr : value->as<std::string>();
  return text == nullptr ? "" : *text;
}

PropertyList::Dictionary PropertyList::withoutRepeats(Dictionary entries) {
  std::vector<std::size_t> places(entries.size());
  std::iota(places.begin(), places.end(), std::size_t{0});
  // By comparison and not by a table: nobody can choose keys that such an order is slow with.
  std::sort(places.begin(), places.end(), [&entries](std::size_t a, std::size_t b) {
    const int order = entries[a].first.compare(entries[b].first);
    return order == 0 ? a < b : order < 0;
  });
  std::vector<bool> isRepeat(entries.size());
  for (std::size_t at = 1, first = 0; at < places.size(); ++at) {
    if (entries[places[at]].first != entries[places[first]].first) {
      first = at;
    } else {
      entries[places[first]].second = std::move(entries[places[at]].second);
      isRepeat[places[at]] = true;
    }
  }
  std::size_t kept = 0;
  for (std::size_t at = 0; at < entries.size(); ++at) {
    if (isRepeat[at]) continue;
    if (kept != at) entries[kept] = std::move(entries[at]);
    ++kept;
  }
  entries.resize(kept);
  return entries;
}

void PropertyList::set(std::string_view key, PropertyList value) {
  if (as<Dictionary>() == nullptr) value_ = Dictionary{};
  auto& dictionary = *as<Dictionary>();
  const auto entry = std::find_if(dictionary.begin(), dictionary.end(),
                                  [key](const auto& candidate) { return candidate.first == key; });
  if (entry == dictionary.end()) {
    dictionary.emplace_back(std::string(key), std::move(value));
  } else {
    entry->second = std::move(value);
  }
}

bool PropertyList::isSwitchedOn() const {
  if (const auto* text = as<std::string>()) return *text == "1";
  if (const auto* flag = as<bool>()) return *flag;
  if (const auto* number = as<std::int64_t>()) return *number == 1;
  if (const auto* number = as<std::uint64_t>()) return *number == 1;
  if (const auto* number = as<double>()) return *number == 1.0;
  return false;
}

bool PropertyList::boolValue() const {
  if (const auto* text = as<std::string>()) return textIsTrue(*text);
  if (const auto* flag = as<bool>()) return *flag;
  if (const auto* number = as<std::int64_t>()) return *number != 0;
  if (const auto* number = as<std::uint64_t>()) return *number != 0;
  if (const auto* number = as<double>()) return *number != 0.0;
  return false;
}

std::int64_t PropertyList::integerValue() const {
  if (const auto* text = as<std::string>()) return integerOfText(*text);
  if (const auto* flag = as<bool>()) return *flag ? 1 : 0;
  if (const auto* number = as<std::int64_t>()) return *number;
  if (const auto* number = as<std::uint64_t>()) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(*number, Integers::max()));
  }
  if (const auto* number = as<double>()) return integerOfFraction(*number);
  return 0;
}

std::string PropertyList::description() const {
  return describe(*this, 0);
}

}  // namespace foundation
