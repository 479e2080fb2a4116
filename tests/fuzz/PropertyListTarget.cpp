#include <cmath>

#include "platform/linux/LibplistPropertyLists.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

using foundation::PropertyList;

/// Whether a value can be equal to itself, and be written at all: text that is read may be no UTF-8.
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

void writeAndRead(platform::PropertyLists& lists, const PropertyList& value) {
  const auto bytes = lists.serialize(value, platform::PropertyListFormat::binary);
  if (!bytes) return;
  const auto again = lists.parse(bytes.value());
  require(again.ok(), "what is written can be read");
  require(!isComparable(value) || again.value() == value, "it is the same when it is read");
}

}  // namespace

void readPropertyList(std::string_view input) {
  platform::LibplistPropertyLists lists;
  const auto value = lists.parse(input);
  if (!value) return;
  static_cast<void>(value.value().description());
  static_cast<void>(value.value().boolValue());
  static_cast<void>(value.value().integerValue());
  static_cast<void>(lists.serialize(value.value(), platform::PropertyListFormat::xml));
  writeAndRead(lists, value.value());
}

}  // namespace fuzz
