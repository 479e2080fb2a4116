#include "platform/linux/LibplistPropertyLists.h"

#include <plist/plist.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;

/// Deeper nesting than any application writes; what is deeper is taken for an attack.
constexpr int kGreatestDepth = 512;
/// Seconds from 1970 to 2001, where property-list dates begin.
constexpr std::int64_t kReferenceDate = 978307200;

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

struct FreeBytes {
  void operator()(void* bytes) const { std::free(bytes); }
};
using Bytes = std::unique_ptr<char, FreeBytes>;

std::optional<PropertyList> valueOf(plist_t node, int depth);

std::optional<PropertyList> dictionaryOf(plist_t node, int depth) {
  PropertyList::Dictionary dictionary;
  plist_dict_iter position = nullptr;
  plist_dict_new_iter(node, &position);
  const Bytes owner(static_cast<char*>(position));
  while (true) {
    char* key = nullptr;
    plist_t child = nullptr;
    plist_dict_next_item(node, position, &key, &child);
    const Bytes keyOwner(key);
    if (child == nullptr) return PropertyList(std::move(dictionary));
    auto value = valueOf(child, depth + 1);
    if (!value || key == nullptr) return std::nullopt;
    dictionary.emplace_back(key, std::move(*value));
  }
}

std::optional<PropertyList> arrayOf(plist_t node, int depth) {
  PropertyList::Array array;
  plist_array_iter position = nullptr;
  plist_array_new_iter(node, &position);
  const Bytes owner(static_cast<char*>(position));
  while (true) {
    plist_t child = nullptr;
    plist_array_next_item(node, position, &child);
    if (child == nullptr) return PropertyList(std::move(array));
    auto value = valueOf(child, depth + 1);
    if (!value) return std::nullopt;
    array.push_back(std::move(*value));
  }
}

PropertyList dateOf(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  const auto moment =
      std::chrono::seconds(kReferenceDate + seconds) + std::chrono::microseconds(microseconds);
  return PropertyList(Date(Date::TimePoint(moment)));
}

std::string textOf(plist_t node) {
  char* text = nullptr;
  plist_get_string_val(node, &text);
  const Bytes owner(text);
  return text == nullptr ? "" : text;
}

std::optional<PropertyList> valueOf(plist_t node, int depth) {
  if (depth > kGreatestDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      return dictionaryOf(node, depth);
    case PLIST_ARRAY:
      return arrayOf(node, depth);
    case PLIST_STRING:
      return PropertyList(textOf(node));
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_BOOLEAN: {
      std::uint8_t flag = 0;
      plist_get_bool_val(node, &flag);
      return PropertyList(flag != 0);
    }
    case PLIST_UINT: {
      std::uint64_t number = 0;
      plist_get_uint_val(node, &number);
      return PropertyList(static_cast<std::int64_t>(number));
    }
    case PLIST_REAL: {
      double number = 0;
      plist_get_real_val(node, &number);
      return PropertyList(number);
    }
    case PLIST_DATA: {
      std::uint64_t length = 0;
      const char* const bytes = plist_get_data_ptr(node, &length);
      return PropertyList(PropertyList::Data{bytes == nullptr ? "" : std::string(bytes, length)});
    }
    case PLIST_UID: {
      std::uint64_t number = 0;
      plist_get_uid_val(node, &number);
      return PropertyList(PropertyList::Uid{number});
    }
    default:
      return std::nullopt;
  }
}

plist_t nodeOf(const PropertyList& value);

struct NodeMaker {
  plist_t operator()(const PropertyList::Dictionary& dictionary) const {
    plist_t const node = plist_new_dict();
    for (const auto& [key, value] : dictionary) plist_dict_set_item(node, key.c_str(), nodeOf(value));
    return node;
  }
  plist_t operator()(const PropertyList::Array& array) const {
    plist_t const node = plist_new_array();
    for (const PropertyList& value : array) plist_array_append_item(node, nodeOf(value));
    return node;
  }
  plist_t operator()(const std::string& text) const { return plist_new_string(text.c_str()); }
  plist_t operator()(const PropertyList::Data& data) const {
    return plist_new_data(data.bytes.data(), data.bytes.size());
  }
  plist_t operator()(bool flag) const { return plist_new_bool(flag ? 1 : 0); }
  plist_t operator()(std::int64_t number) const { return plist_new_uint(static_cast<std::uint64_t>(number)); }
  plist_t operator()(std::uint64_t number) const { return plist_new_uint(number); }
  plist_t operator()(double number) const { return plist_new_real(number); }
  plist_t operator()(Date date) const {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date.moment());
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(date.moment() - seconds);
    return plist_new_date(static_cast<std::int32_t>(seconds.time_since_epoch().count() - kReferenceDate),
                          static_cast<std::int32_t>(rest.count()));
  }
  plist_t operator()(PropertyList::Uid uid) const { return plist_new_uid(uid.value); }
};

plist_t nodeOf(const PropertyList& value) {
  return std::visit(NodeMaker{}, value.value());
}

}  // namespace

Result<PropertyList> LibplistPropertyLists::parse(std::string_view bytes) {
  if (bytes.size() > kLargestPropertyList) return systemError(EFBIG, "");
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const Node owner(root);
  if (root == nullptr) return systemError(EINVAL, "");
  auto value = valueOf(root, 0);
  if (!value) return systemError(EINVAL, "");
  return std::move(*value);
}

Result<std::string> LibplistPropertyLists::serialize(const PropertyList& value, PropertyListFormat format) {
  const Node root(nodeOf(value));
  char* bytes = nullptr;
  std::uint32_t length = 0;
  if (format == PropertyListFormat::xml) {
    plist_to_xml(root.get(), &bytes, &length);
  } else {
    plist_to_bin(root.get(), &bytes, &length);
  }
  const Bytes owner(bytes);
  if (bytes == nullptr) return systemError(EINVAL, "");
  return std::string(bytes, length);
}

}  // namespace platform
