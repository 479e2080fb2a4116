#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/foundation/Date.h"

namespace foundation {

/// A property-list value, as property-list files hold them (Apple's plist(5)): a plain value type.
class PropertyList {
 public:
  struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
  };
  /// A reference into an archive (keyed archives use it); kept, so that a file read and written back is
  /// whole.
  struct Uid {
    std::uint64_t value = 0;
    bool operator==(const Uid&) const = default;
  };
  using Array = std::vector<PropertyList>;
  /// In the order of the file; keys are unique.
  using Dictionary = std::vector<std::pair<std::string, PropertyList>>;
  using Value = std::variant<Dictionary, Array, std::string, Data, bool, std::int64_t, std::uint64_t, double,
                             Date, Uid>;

  PropertyList() = default;                                              ///< an empty dictionary
  PropertyList(Dictionary value) : value_(std::move(value)) {}           // NOLINT: implicit, a
  PropertyList(Array value) : value_(std::move(value)) {}                // NOLINT: value of each
  PropertyList(std::string value) : value_(std::move(value)) {}          // NOLINT: kind is a
  PropertyList(std::string_view value) : value_(std::string(value)) {}   // NOLINT: property list
  PropertyList(const char* value) : value_(std::string(value)) {}        // NOLINT
  PropertyList(Data value) : value_(std::move(value)) {}                 // NOLINT
  PropertyList(bool value) : value_(value) {}                            // NOLINT
  PropertyList(int value) : value_(static_cast<std::int64_t>(value)) {}  // NOLINT
  PropertyList(std::int64_t value) : value_(value) {}                    // NOLINT
  PropertyList(std::uint64_t value) : value_(value) {}                   // NOLINT
  PropertyList(double value) : value_(value) {}                          // NOLINT
  PropertyList(Date value) : value_(value) {}                            // NOLINT
  PropertyList(Uid value) : value_(value) {}                             // NOLINT

  [[nodiscard]] const Value& value() const { return value_; }

  /// The value as that kind, or nullptr when it is of another kind.
  template <typename Kind>
  [[nodiscard]] const Kind* as() const {
    return std::get_if<Kind>(&value_);
  }
  template <typename Kind>
  [[nodiscard]] Kind* as() {
    return std::get_if<Kind>(&value_);
  }

  /// The value of a dictionary's key; nullptr when there is none or this is no dictionary.
  [[nodiscard]] const PropertyList* find(std::string_view key) const;

  /// The string of a dictionary's key; "" when there is none or it is of another kind.
  [[nodiscard]] std::string stringFor(std::string_view key) const;

  /// The entries with unique keys: of one that stands there more than once the last value, in the first's
  /// place. Takes little more time than a look at each, whoever has chosen the keys.
  [[nodiscard]] static Dictionary withoutRepeats(Dictionary entries);

  /// Sets a key; a value that is no dictionary becomes one first.
  void set(std::string_view key, PropertyList value);

  /// Whether a preference switch stands at on: the string "1", or a number (or boolean) equal to 1.
  [[nodiscard]] bool isSwitchedOn() const;

  /// The platform's reading of a value as a boolean: true, a number other than 0, or a string that begins
  /// (after blanks, a sign and zeros) with Y, y, T, t or a digit 1 to 9.
  [[nodiscard]] bool boolValue() const;

  /// The platform's reading of a value as an integer: a number without its fraction, or the digits that a
  /// string begins with (after blanks and a sign); the nearest there is where it is too large, 0 for anything
  /// else.
  [[nodiscard]] std::int64_t integerValue() const;

  /// The text that %@ shows: a string as it is, a number in digits, a date in its default form, a dictionary
  /// as
  /// "{\n    key = value;\n}", an array as "(\n    a,\n    b\n)".
  [[nodiscard]] std::string description() const;

  bool operator==(const PropertyList&) const = default;

 private:
  Value value_;
};

}  // namespace foundation
