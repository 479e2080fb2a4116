#include "platform/PropertyListNesting.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <vector>

namespace platform {
namespace {

constexpr std::string_view kBinaryMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;

/// Moves behind the next `closing`; answers whether there is one.
bool skip(std::string_view& text, std::string_view closing) {
  const std::size_t end = text.find(closing);
  if (end == std::string_view::npos) return false;
  text.remove_prefix(end + closing.size());
  return true;
}

/// How much a tag, without its angle brackets, changes the depth.
int depthChange(std::string_view tag) {
  const bool isClosing = tag.starts_with('/');
  if (isClosing) tag.remove_prefix(1);
  const std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n/>"));
  if (name != "array" && name != "dict") return 0;
  if (tag.ends_with('/')) return 0;
  return isClosing ? -1 : 1;
}

int faultOfXml(std::string_view text, std::size_t mostValues) {
  int depth = 0;
  std::size_t values = 0;
  while (true) {
    text.remove_prefix(std::min(text.find('<'), text.size()));
    if (text.empty()) return depth == 0 ? 0 : EINVAL;
    if (text.starts_with("<!--")) {
      if (!skip(text, "-->")) return EINVAL;
    } else if (text.starts_with("<![CDATA[")) {
      if (!skip(text, "]]>")) return EINVAL;
    } else if (text.starts_with("<?")) {
      if (!skip(text, "?>")) return EINVAL;
    } else {
      const std::string_view tag = text.substr(1, text.find('>') - 1);
      if (!skip(text, ">")) return EINVAL;
      depth += depthChange(tag);
      if (depth < 0 || depth > static_cast<int>(kGreatestNesting)) return EINVAL;
      if (!tag.starts_with('/') && ++values > mostValues) return EFBIG;
    }
  }
}

/// The objects of a binary property list, as Apple's CFBinaryPList.c lays them out: a marker byte, whose
/// upper half is the kind and whose lower half the count, or 15 and the count as an integer object; after an
/// array's or dictionary's count the numbers of its elements (keys first, then values).
class BinaryObjects {
 public:
  explicit BinaryObjects(std::string_view bytes) : bytes_(bytes) {
    if (bytes.size() < kBinaryMagic.size() + kTrailerSize) return;
    const std::size_t trailer = bytes.size() - kTrailerSize;
    offsetSize_ = static_cast<unsigned char>(bytes[trailer + 6]);
    referenceSize_ = static_cast<unsigned char>(bytes[trailer + 7]);
    const auto count = number(trailer + 8, 8);
    root_ = number(trailer + 16, 8).value_or(0);
    table_ = number(trailer + 24, 8).value_or(0);
    const bool sizesFit = offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8;
    if (!sizesFit || table_ > trailer || *count > (trailer - table_) / offsetSize_) return;
    count_ = *count;
  }

  [[nodiscard]] std::size_t count() const { return count_; }
  [[nodiscard]] std::size_t root() const { return root_; }

  /// The numbers of what an object contains, of the first `most` at most; nullopt when it does not
  /// lie within the bytes.
  [[nodiscard]] std::optional<std::vector<std::size_t>> elementsOf(std::size_t object,
                                                                   std::size_t most) const {
    const auto at = number(table_ + object * offsetSize_, offsetSize_);
    const auto marker = at ? number(*at, 1) : std::nullopt;
    if (!marker) return std::nullopt;
    const auto kind = *marker >> 4U;
    if (kind != 0xA && kind != 0xC && kind != 0xD) return std::vector<std::size_t>();
    std::size_t position = *at + 1;
    auto length = std::optional<std::size_t>(*marker & 0xFU);
    if (*length == 0xF) length = longCount(position);
    if (!length || *length > bytes_.size()) return std::nullopt;
    return references(position, std::min(kind == 0xD ? 2 * *length : *length, most));
  }

 private:
  /// A big-endian number, or nothing where it does not lie within the bytes.
  [[nodiscard]] std::optional<std::size_t> number(std::size_t at, std::size_t size) const {
    if (at > bytes_.size() || size > bytes_.size() - at || size > 8) return std::nullopt;
    std::size_t value = 0;
    for (const char byte : bytes_.substr(at, size)) value = value << 8U | static_cast<unsigned char>(byte);
    return value;
  }

  /// Reads a count that is an integer object, and moves behind it.
  std::optional<std::size_t> longCount(std::size_t& position) const {
    const auto marker = number(position, 1);
    if (!marker || *marker >> 4U != 1) return std::nullopt;
    const std::size_t size = std::size_t{1} << (*marker & 0xFU);
    const auto value = number(position + 1, size);
    position += 1 + size;
    return value;
  }

  [[nodiscard]] std::optional<std::vector<std::size_t>> references(std::size_t at, std::size_t length) const {
    std::vector<std::size_t> elements;
    for (std::size_t index = 0; index < length; ++index) {
      const auto element = number(at + index * referenceSize_, referenceSize_);
      if (!element || *element >= count_) return std::nullopt;
      elements.push_back(*element);
    }
    return elements;
  }

  std::string_view bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t count_ = 0;
  std::size_t root_ = 0;
  std::size_t table_ = 0;
};

/// Walks the objects from the root, each once, and finds out how deep each reaches and for how many values it
/// stands.
class BinaryWalk {
 public:
  BinaryWalk(const BinaryObjects& objects, std::size_t mostValues)
      : objects_(objects), mostValues_(mostValues) {}

  /// Answers 0 or an errno value.
  int fault() { return succeeds() ? 0 : fault_; }

 private:
  bool succeeds() {
    if (objects_.count() > mostValues_) return isTooMuch();
    known_.resize(objects_.count());
    if (objects_.root() >= objects_.count() || !enter(objects_.root())) return false;
    while (!path_.empty()) {
      if (!step()) return false;
    }
    return true;
  }

  struct Object {
    std::size_t height = 0;  ///< 0 while it is not known
    std::size_t values = 0;
    bool isOnPath = false;
  };
  struct Visit {
    std::size_t object = 0;
    std::vector<std::size_t> elements;
    std::size_t next = 0;
    Object sum{1, 1, true};
  };

  bool enter(std::size_t object) {
    auto elements = objects_.elementsOf(object, mostValues_ + 1);
    if (!elements || path_.size() > kGreatestNesting || known_[object].isOnPath) return false;
    known_[object].isOnPath = true;
    // Arrays may share their bytes. Each element stands for one value or more.
    elementsOnPath_ += elements->size();
    if (elementsOnPath_ > mostValues_) return isTooMuch();
    path_.push_back({object, std::move(*elements)});
    return true;
  }

  bool step() {
    Visit& visit = path_.back();
    if (visit.next == visit.elements.size()) return leave();
    const Object& element = known_[visit.elements[visit.next]];
    if (element.height == 0) return enter(visit.elements[visit.next]);
    ++visit.next;
    visit.sum.height = std::max(visit.sum.height, element.height + 1);
    visit.sum.values += element.values;
    if (visit.sum.values > mostValues_) return isTooMuch();
    return path_.size() + element.height <= kGreatestNesting + 1;
  }

  bool leave() {
    Visit& visit = path_.back();
    visit.sum.isOnPath = false;
    known_[visit.object] = visit.sum;
    elementsOnPath_ -= visit.elements.size();
    path_.pop_back();
    return true;
  }

  bool isTooMuch() {
    fault_ = EFBIG;
    return false;
  }

  const BinaryObjects& objects_;
  std::size_t mostValues_;
  std::vector<Object> known_;
  std::vector<Visit> path_;
  std::size_t elementsOnPath_ = 0;
  int fault_ = EINVAL;
};

}  // namespace

int nestingFault(std::string_view bytes, std::size_t mostValues) {
  if (!bytes.starts_with(kBinaryMagic)) return faultOfXml(bytes, mostValues);
  const BinaryObjects objects(bytes);
  return BinaryWalk(objects, mostValues).fault();
}

}  // namespace platform
