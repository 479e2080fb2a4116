#include "platform/linux/LinuxPropertyLists.h"

#include <algorithm>
#include <cerrno>

#include "platform/foundation/BinaryPropertyList.h"
#include "platform/foundation/Text.h"
#include "platform/linux/XmlPropertyListReader.h"
#include "platform/linux/XmlPropertyListWriter.h"

namespace platform {
namespace {

using foundation::BinaryPropertyList;
using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;

/// Whether a value can be written and read again, within that many arrays and dictionaries.
struct Fitness {
  PropertyListFormat format;
  std::size_t depth = 0;

  [[nodiscard]] bool of(const PropertyList& value) const { return std::visit(*this, value.value()); }
  [[nodiscard]] bool ofElement(const PropertyList& value) const {
    return Fitness{format, depth + 1}.of(value);
  }
  [[nodiscard]] bool mayHoldMore() const { return depth < kGreatestNesting; }

  bool operator()(const PropertyList::Dictionary& dictionary) const {
    return mayHoldMore() && std::all_of(dictionary.begin(), dictionary.end(), [this](const auto& entry) {
             return (*this)(entry.first) && ofElement(entry.second);
           });
  }
  bool operator()(const PropertyList::Array& array) const {
    return mayHoldMore() && std::all_of(array.begin(), array.end(),
                                        [this](const PropertyList& value) { return ofElement(value); });
  }
  bool operator()(const std::string& text) const {
    if (format == PropertyListFormat::xml) return isXmlText(text);
    return text.find('\0') == std::string::npos && foundation::isUtf8(text);
  }
  /// In XML a dictionary stands for it.
  bool operator()(PropertyList::Uid) const { return format == PropertyListFormat::binary || mayHoldMore(); }
  template <typename Other>
  bool operator()(const Other&) const {
    return true;
  }
};

}  // namespace

Result<PropertyList> LinuxPropertyLists::parse(std::string_view bytes, const PropertyListLimits& limits) {
  if (bytes.size() > limits.bytes) return systemError(EFBIG, "");
  if (!bytes.starts_with("bplist00")) return readXmlPropertyList(bytes, limits.values);
  const auto list = BinaryPropertyList::open(std::string(bytes), limits.values);
  return list ? list.value().value() : list.error();
}

Result<std::string> LinuxPropertyLists::serialize(const PropertyList& value, PropertyListFormat format) {
  if (!Fitness{format}.of(value)) return systemError(EINVAL, "");
  if (format == PropertyListFormat::binary) return BinaryPropertyList::serialize(value);
  return xmlPropertyList(value);
}

}  // namespace platform
