#include "platform/foundation/BinaryPropertyList.h"
#include "platform/foundation/Text.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

using foundation::BinaryPropertyList;
using Objects = std::vector<BinaryPropertyList::Object>;

constexpr std::size_t kMostValues = 100'000;
constexpr const char* kKey = "watchlist";

Objects elementsOf(const BinaryPropertyList& list) {
  const auto array = list.find(list.root(), kKey);
  return array ? list.elements(*array) : Objects();
}

void lookAt(const BinaryPropertyList& list, BinaryPropertyList::Object object) {
  const auto text = list.text(object);
  require(!text || list.isText(object, *text), "a text is itself");
  require(!text || foundation::isUtf8(*text), "a text is made of characters");
  static_cast<void>(list.integer(object));
  const auto value = list.find(object, "a");
  require(!value || list.isDictionary(object), "only dictionaries have keys");
  require(list.elements(object).empty() || list.isArray(object), "only arrays have elements");
}

}  // namespace

void changeBinaryPropertyList(std::string_view input) {
  const auto opened = BinaryPropertyList::open(std::string(input), kMostValues);
  if (!opened) return;
  const BinaryPropertyList& list = opened.value();
  lookAt(list, list.root());
  const auto value = list.value();
  require(!value || (value.value().as<foundation::PropertyList::Dictionary>() != nullptr) ==
                        list.isDictionary(list.root()),
          "the value is of the root's kind");
  require(!value || BinaryPropertyList::serialize(value.value()).ok(), "what is read can be written");
  const Objects elements = elementsOf(list);
  for (const auto element : elements) lookAt(list, element);
  const auto bytes = list.replacingArray(kKey, elements, {"appended"});
  require(bytes.ok() == list.isDictionary(list.root()), "a dictionary takes an array, and nothing else does");
  if (!bytes) return;
  const auto changed = BinaryPropertyList::open(bytes.value(), 2 * kMostValues);
  require(changed.ok(), "what is written is sound");
  const Objects now = elementsOf(changed.value());
  require(now.size() == elements.size() + 1, "all elements are there, and the new one");
  require(changed.value().isText(now.back(), "appended"), "the new one is the last");
}

}  // namespace fuzz
