#include "workstation/PropertyListFile.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace workstation {
namespace {

using foundation::PropertyList;

/// 2001-01-01 00:00:00 UTC, which property lists count their dates from.
constexpr double macEpoch = 978307200;

plist_t nodeOf(const PropertyList& value);

struct MakeNode {
  plist_t operator()(const PropertyList::Dictionary& entries) const {
    plist_t node = plist_new_dict();
    for (const auto& [key, value] : entries) plist_dict_set_item(node, key.c_str(), nodeOf(value));
    return node;
  }
  plist_t operator()(const PropertyList::Array& items) const {
    plist_t node = plist_new_array();
    for (const auto& item : items) plist_array_append_item(node, nodeOf(item));
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
  plist_t operator()(const foundation::Date& date) const {
    return plist_new_date(static_cast<std::int32_t>(date.unixTime() - macEpoch), 0);
  }
  plist_t operator()(const PropertyList::Uid& uid) const { return plist_new_uid(uid.value); }
};

plist_t nodeOf(const PropertyList& value) {
  return std::visit(MakeNode{}, value.value());
}

}  // namespace

std::string encodedPropertyList(const PropertyList& value, Encoding encoding) {
  const std::unique_ptr<void, decltype(&plist_free)> node(nodeOf(value), plist_free);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  if (encoding == Encoding::xml) {
    plist_to_xml(node.get(), &bytes, &length);
  } else {
    plist_to_bin(node.get(), &bytes, &length);
  }
  const std::unique_ptr<char, decltype(&plist_to_bin_free)> owner(bytes, plist_to_bin_free);
  return std::string(bytes, length);
}

void writePropertyList(const std::filesystem::path& file, const PropertyList& value, Encoding encoding) {
  writeFile(file, encodedPropertyList(value, encoding));
}

void writeFile(const std::filesystem::path& file, std::string_view bytes) {
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), file.string());
  const auto written = ::write(descriptor, bytes.data(), bytes.size());
  const int error = errno;
  ::close(descriptor);
  if (written != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(error, std::generic_category(), file.string());
  }
}

}  // namespace workstation
