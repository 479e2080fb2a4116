#include "tests/support/LibplistPropertyLists.h"

#include <plist/plist.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>
#include <unordered_map>

namespace support {
namespace {

using foundation::Date;
using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;
using platform::PropertyListFormat;

/// Seconds from 1970 to 2001, where property-list dates begin.
constexpr double kReferenceDate = 978307200;

// The object markers of the binary format.
constexpr char kSixteenByteInteger = '\x14';
constexpr char kDate = '\x33';
constexpr std::size_t kFirstObject = 8;  ///< behind "bplist00"

struct FreeNode {
  void operator()(void* node) const { ::plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

struct FreeBytes {
  void operator()(void* bytes) const { std::free(bytes); }
};
using Bytes = std::unique_ptr<char, FreeBytes>;

std::string bigEndian(std::uint64_t number) {
  std::string bytes;
  for (unsigned shift = 64; shift > 0; shift -= 8) bytes += static_cast<char>(number >> (shift - 8) & 0xFFU);
  return bytes;
}

std::uint64_t fromBigEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8U | static_cast<unsigned char>(byte);
  return number;
}

/// A single value as a binary property list's object: marker and content. The library's accessors give dates
/// in 32 bits and do not tell large unsigned numbers from negative ones; its binary form has both whole.
std::string objectOf(plist_t node) {
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &bytes, &length);
  const Bytes owner(bytes);
  return bytes == nullptr || length < kFirstObject ? ""
                                                   : std::string(bytes + kFirstObject, length - kFirstObject);
}

plist_t nodeFromObject(const std::string& object) {
  std::string bytes = "bplist00" + object;
  const std::size_t table = bytes.size();
  bytes += static_cast<char>(kFirstObject);
  bytes += std::string(6, '\0') + "\x01\x01" + bigEndian(1) + bigEndian(0) + bigEndian(table);
  plist_t node = nullptr;
  plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  return node;
}

/// Turns the library's nodes into values. Nothing where a node is of no known kind.
class Reader {
 public:
  // NOLINTNEXTLINE(misc-no-recursion): the depth is limited before
  std::optional<PropertyList> value(plist_t node) const {
    switch (plist_get_node_type(node)) {
      case PLIST_DICT:
        return dictionary(node);
      case PLIST_ARRAY:
        return array(node);
      case PLIST_STRING:
        return PropertyList(text(node));
      case PLIST_DATE:
        return date(node);
      case PLIST_BOOLEAN:
        return PropertyList(scalar<std::uint8_t>(plist_get_bool_val, node) != 0);
      case PLIST_UINT:
        return integer(node);
      case PLIST_REAL:
        return PropertyList(scalar<double>(plist_get_real_val, node));
      case PLIST_DATA:
        return PropertyList(data(node));
      case PLIST_UID:
        return PropertyList(PropertyList::Uid{scalar<std::uint64_t>(plist_get_uid_val, node)});
      default:
        return std::nullopt;
    }
  }

 private:
  template <typename Scalar>
  static Scalar scalar(void (*get)(plist_t, Scalar*), plist_t node) {
    Scalar value{};
    get(node, &value);
    return value;
  }

  std::optional<PropertyList> dictionary(plist_t node) const {
    PropertyList::Dictionary dictionary;
    std::unordered_map<std::string, std::size_t> places;
    plist_dict_iter position = nullptr;
    plist_dict_new_iter(node, &position);
    const Bytes owner(static_cast<char*>(position));
    while (true) {
      char* key = nullptr;
      plist_t child = nullptr;
      plist_dict_next_item(node, position, &key, &child);
      const Bytes keyOwner(key);
      if (child == nullptr) return PropertyList(std::move(dictionary));
      auto content = value(child);
      if (!content || key == nullptr) return std::nullopt;
      // The library sees to it that keys are unique only where it reads XML.
      const auto [place, isNew] = places.emplace(key, dictionary.size());
      if (isNew) dictionary.emplace_back(key, PropertyList());
      dictionary[place->second].second = std::move(*content);
    }
  }

  std::optional<PropertyList> array(plist_t node) const {
    PropertyList::Array array;
    plist_array_iter position = nullptr;
    plist_array_new_iter(node, &position);
    const Bytes owner(static_cast<char*>(position));
    while (true) {
      plist_t child = nullptr;
      plist_array_next_item(node, position, &child);
      if (child == nullptr) return PropertyList(std::move(array));
      auto content = value(child);
      if (!content) return std::nullopt;
      array.push_back(std::move(*content));
    }
  }

  [[nodiscard]] std::string text(plist_t node) const {
    const char* const text = plist_get_string_ptr(node, nullptr);
    return text == nullptr ? "" : text;
  }

  [[nodiscard]] std::optional<PropertyList> date(plist_t node) const {
    const std::string object = objectOf(node);
    if (object.size() < 9 || object[0] != kDate) return std::nullopt;
    const auto seconds = std::bit_cast<double>(fromBigEndian(std::string_view(object).substr(1, 8)));
    if (!std::isfinite(seconds)) return std::nullopt;
    return PropertyList(Date::fromUnixTime(kReferenceDate + seconds));
  }

  [[nodiscard]] PropertyList integer(plist_t node) const {
    const auto number = scalar<std::uint64_t>(plist_get_uint_val, node);
    const bool isLarge = number > static_cast<std::uint64_t>(INT64_MAX);
    if (isLarge && objectOf(node).starts_with(kSixteenByteInteger)) return {number};
    return {static_cast<std::int64_t>(number)};
  }

  [[nodiscard]] PropertyList::Data data(plist_t node) const {
    std::uint64_t length = 0;
    const char* const bytes = plist_get_data_ptr(node, &length);
    return {bytes == nullptr ? "" : std::string(bytes, length)};
  }
};

/// Turns values into the library's nodes; nullptr for one that cannot be written.
struct Writer {
  PropertyListFormat format;
  std::size_t depth = 0;

  [[nodiscard]] Node node(const PropertyList& value) const {
    if (depth > platform::kGreatestNesting) return nullptr;
    return Node(std::visit(*this, value.value()));
  }
  [[nodiscard]] Writer deeper() const { return {format, depth + 1}; }

  static bool canBeWritten(const std::string& text) { return text.find('\0') == std::string::npos; }

  plist_t operator()(const PropertyList::Dictionary& dictionary) const {
    Node container(plist_new_dict());
    for (const auto& [key, value] : dictionary) {
      Node child = deeper().node(value);
      if (!child || !canBeWritten(key)) return nullptr;
      plist_dict_set_item(container.get(), key.c_str(), child.release());
    }
    return container.release();
  }
  plist_t operator()(const PropertyList::Array& array) const {
    Node container(plist_new_array());
    for (const PropertyList& value : array) {
      Node child = deeper().node(value);
      if (!child) return nullptr;
      plist_array_append_item(container.get(), child.release());
    }
    return container.release();
  }
  plist_t operator()(const std::string& text) const {
    return canBeWritten(text) ? plist_new_string(text.c_str()) : nullptr;
  }
  plist_t operator()(const PropertyList::Data& data) const {
    return plist_new_data(data.bytes.data(), data.bytes.size());
  }
  plist_t operator()(bool flag) const { return plist_new_bool(flag ? 1 : 0); }
  plist_t operator()(std::int64_t number) const { return plist_new_uint(static_cast<std::uint64_t>(number)); }
  plist_t operator()(std::uint64_t number) const {
    if (number <= static_cast<std::uint64_t>(INT64_MAX)) return plist_new_uint(number);
    return nodeFromObject(kSixteenByteInteger + bigEndian(0) + bigEndian(number));
  }
  plist_t operator()(double number) const { return plist_new_real(number); }
  plist_t operator()(Date date) const {
    // XML cuts the fraction here: the library cuts it towards 2001, which would move earlier dates.
    const double unixTime = format == PropertyListFormat::xml ? std::floor(date.unixTime()) : date.unixTime();
    return nodeFromObject(kDate + bigEndian(std::bit_cast<std::uint64_t>(unixTime - kReferenceDate)));
  }
  plist_t operator()(PropertyList::Uid uid) const { return plist_new_uid(uid.value); }
};

}  // namespace

Result<PropertyList> LibplistPropertyLists::parse(std::string_view bytes,
                                                  const platform::PropertyListLimits& limits) {
  if (bytes.size() > limits.bytes) return systemError(EFBIG, "");
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const Node owner(root);
  if (root == nullptr) return systemError(EINVAL, "");
  auto value = Reader().value(root);
  if (!value) return systemError(EINVAL, "");
  return std::move(*value);
}

Result<std::string> LibplistPropertyLists::serialize(const PropertyList& value, PropertyListFormat format) {
  const Node root = Writer{format}.node(value);
  if (!root) return systemError(EINVAL, "");
  char* bytes = nullptr;
  std::uint32_t length = 0;
  (format == PropertyListFormat::xml ? plist_to_xml : plist_to_bin)(root.get(), &bytes, &length);
  const Bytes owner(bytes);
  if (bytes == nullptr) return systemError(EINVAL, "");
  return std::string(bytes, length);
}

}  // namespace support
