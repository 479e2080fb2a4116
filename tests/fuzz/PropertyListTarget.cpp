#include <cmath>

#include "platform/linux/LinuxPropertyLists.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

using foundation::PropertyList;

/// Whether a value can be equal to itself.
bool isComparable(const PropertyList& value) {
  if (const auto* number = value.as<double>()) return !std::isnan(*number);
  if (const auto* array = value.as<PropertyList::Array>()) {
    for (const PropertyList& element : *array) {
      if (!isComparable(element)) return false;
    }
  }
  if (const auto* dictionary = value.as<PropertyList::Dictionary>()) {
    for (const auto& [key, element] : *dictionary) {
      if (!isComparable(element)) return false;
    }
  }
  return true;
}

/// What a short input stands for may be long.
constexpr platform::PropertyListLimits kAny{256U << 20U, 10'000'000};

void writeAndRead(platform::PropertyLists& lists, const PropertyList& value) {
  const auto bytes = lists.serialize(value, platform::PropertyListFormat::binary);
  require(bytes.ok(), "what is read can be written");
  const auto again = lists.parse(bytes.value(), kAny);
  require(again.ok(), "what is written can be read");
  require(!isComparable(value) || again.value() == value, "it is the same when it is read");
}

/// XML has no fractions of seconds and no references of archives; what it has comes back.
void writeAndReadXml(platform::PropertyLists& lists, const PropertyList& value) {
  const auto bytes = lists.serialize(value, platform::PropertyListFormat::xml);
  if (!bytes) return;
  const auto again = lists.parse(bytes.value(), kAny);
  require(again.ok(), "what is written as XML can be read");
  const auto second = lists.serialize(again.value(), platform::PropertyListFormat::xml);
  require(second.ok() && second.value() == bytes.value(), "it is written the same when it was read");
}

}  // namespace

void readPropertyList(std::string_view input) {
  platform::LinuxPropertyLists lists;
  const auto value = lists.parse(input);
  if (!value) return;
  static_cast<void>(value.value().description());
  static_cast<void>(value.value().boolValue());
  static_cast<void>(value.value().integerValue());
  writeAndRead(lists, value.value());
  writeAndReadXml(lists, value.value());
}

}  // namespace fuzz
