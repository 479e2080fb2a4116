#include "platform/foundation/BinaryPropertyList.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <map>
#include <utility>

#include "platform/foundation/Text.h"

namespace foundation {
namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kGreatestNesting = 512;
/// Of texts and data that a list stands for, however small it is: some are referred to by every entry.
constexpr std::size_t kAlwaysTakenBytes = std::size_t{64} << 20U;

// The kinds of objects.
constexpr unsigned kSimple = 0x0;
constexpr unsigned kInteger = 0x1;
constexpr unsigned kReal = 0x2;
constexpr unsigned kDate = 0x3;
constexpr unsigned kData = 0x4;
constexpr unsigned kAscii = 0x5;
constexpr unsigned kUtf16 = 0x6;
constexpr unsigned kUtf8 = 0x7;
constexpr unsigned kUid = 0x8;
constexpr unsigned kArray = 0xA;
constexpr unsigned kSet = 0xC;
constexpr unsigned kDictionary = 0xD;
constexpr std::size_t kCountFollows = 0xF;

/// Seconds from 1970 to 2001, where property-list dates begin.
constexpr double kReferenceDate = 978307200;

constexpr std::size_t kNull = 0x0;
constexpr std::size_t kFalse = 0x8;
constexpr std::size_t kTrue = 0x9;

bool isContainer(unsigned kind) {
  return kind == kArray || kind == kSet || kind == kDictionary;
}

bool isTextKind(unsigned kind) {
  return kind == kAscii || kind == kUtf16 || kind == kUtf8;
}

bool isCounted(unsigned kind) {
  return kind == kData || isTextKind(kind) || isContainer(kind);
}

std::size_t elementCount(unsigned kind, std::size_t count) {
  return kind == kDictionary ? 2 * count : count;
}

/// Of characters of that many bytes.
bool hasZeroCharacter(std::string_view text, std::size_t size) {
  if (size == 1) return text.find('\0') != std::string_view::npos;
  for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
    if (text[at] == '\0' && text[at + 1] == '\0') return true;
  }
  return false;
}

/// What stands for each thing in a text that is no character.
constexpr char32_t kReplacement = 0xFFFD;
constexpr std::string_view kReplacementText = "\xEF\xBF\xBD";

/// Whether bytes can be taken as the text that they are.
bool isSoundText(std::string_view bytes) {
  return !hasZeroCharacter(bytes, 1) && isUtf8(bytes);
}

std::string soundText(std::string_view bytes) {
  if (isSoundText(bytes)) return std::string(bytes);
  std::string text;
  while (!bytes.empty()) {
    const Utf8Character character = firstCharacter(bytes);
    appendUtf8(text, character.code == 0 ? kReplacement : character.code);
    bytes.remove_prefix(std::max<std::size_t>(character.length, 1));
  }
  return text;
}

/// Whether the sound text of the bytes is that one, for most without making it.
bool isSoundTextOf(std::string_view bytes, std::string_view text) {
  if (bytes.size() == text.size()) return bytes == text && isSoundText(text);
  // What is replaced grows, each byte to three.
  if (bytes.size() > text.size() || 3 * bytes.size() < text.size()) return false;
  return text.find(kReplacementText) != std::string_view::npos && soundText(bytes) == text;
}

std::string utf8FromUtf16(std::string_view bytes) {
  const auto unit = [bytes](std::size_t at) {
    return char32_t{static_cast<unsigned char>(bytes[at])} << 8U | static_cast<unsigned char>(bytes[at + 1]);
  };
  const auto isIn = [](char32_t code, char32_t first) { return code >= first && code < first + 0x400; };
  std::string text;
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    const char32_t code = unit(at);
    const bool isPair = isIn(code, 0xD800) && at + 3 < bytes.size() && isIn(unit(at + 2), 0xDC00);
    if (isPair) {
      appendUtf8(text, 0x10000 + ((code - 0xD800) << 10U) + (unit(at + 2) - 0xDC00));
      at += 2;
    } else {
      const bool isNone = code == 0 || isIn(code, 0xD800) || isIn(code, 0xDC00);
      appendUtf8(text, isNone ? kReplacement : code);
    }
  }
  return text;
}

/// Numbers of one size, which the compiler knows: a list of many entries is made of millions of them.
template <std::size_t bytes>
struct NumberOf {
  static constexpr std::size_t size = bytes;

  static std::size_t load(const char* from) { return load(from, std::make_index_sequence<bytes>()); }
  static void store(char* to, std::size_t number) { store(to, number, std::make_index_sequence<bytes>()); }

 private:
  template <std::size_t... at>
  static std::size_t load(const char* from, std::index_sequence<at...>) {
    std::size_t number = 0;
    ((number = number << 8U | static_cast<unsigned char>(from[at])), ...);
    return number;
  }
  template <std::size_t... at>
  static void store(char* to, std::size_t number, std::index_sequence<at...>) {
    ((to[at] = static_cast<char>(number >> 8 * (bytes - 1 - at) & 0xFFU)), ...);
  }
};

/// Does the work with numbers of that size, from 1 to 8.
template <typename Work>
auto withNumbersOf(std::size_t size, Work work) {
  if (size == 4) return work(NumberOf<4>());
  if (size == 1) return work(NumberOf<1>());
  if (size == 2) return work(NumberOf<2>());
  if (size == 3) return work(NumberOf<3>());
  if (size == 5) return work(NumberOf<5>());
  if (size == 6) return work(NumberOf<6>());
  if (size == 7) return work(NumberOf<7>());
  return work(NumberOf<8>());
}

/// The size that large files have is looked at first, and where it is asked for.
inline std::size_t loadNumber(const char* bytes, std::size_t size) {
  if (size == 4) return NumberOf<4>::load(bytes);
  return withNumbersOf(size, [bytes](auto number) { return number.load(bytes); });
}

void storeNumber(char* bytes, std::uint64_t number, std::size_t size) {
  withNumbersOf(size, [bytes, number](auto numbers) { numbers.store(bytes, number); });
}

void appendNumber(std::string& bytes, std::uint64_t number, std::size_t size) {
  bytes.resize(bytes.size() + size);
  storeNumber(bytes.data() + bytes.size() - size, number, size);
}

/// How many bytes, as a power of two, hold a number.
std::size_t sizeFor(std::uint64_t number) {
  if (number <= 0xFFU) return 1;
  if (number <= 0xFFFFU) return 2;
  return number <= 0xFFFFFFFFU ? 4 : 8;
}

std::string integerObject(std::uint64_t number) {
  const std::size_t size = sizeFor(number);
  std::string object(1, static_cast<char>(kInteger << 4U | static_cast<unsigned>(std::countr_zero(size))));
  appendNumber(object, number, size);
  return object;
}

std::string header(unsigned kind, std::size_t count) {
  const std::size_t inMarker = std::min(count, kCountFollows);
  std::string bytes(1, static_cast<char>(kind << 4U | inMarker));
  if (inMarker == kCountFollows) bytes += integerObject(count);
  return bytes;
}

std::optional<std::string> textObject(const std::string& text) {
  if (hasZeroCharacter(text, 1)) return std::nullopt;
  const bool isAscii = std::all_of(text.begin(), text.end(),
                                   [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
  if (isAscii) return header(kAscii, text.size()) + text;
  if (!isUtf8(text)) return std::nullopt;
  std::string units;
  for (std::string_view rest = text; !rest.empty();) {
    const Utf8Character character = firstCharacter(rest);
    rest.remove_prefix(character.length);
    if (character.code >= 0x10000) {
      appendNumber(units, 0xD800 + ((character.code - 0x10000) >> 10U), 2);
      appendNumber(units, 0xDC00 + ((character.code - 0x10000) & 0x3FFU), 2);
    } else {
      appendNumber(units, character.code, 2);
    }
  }
  return header(kUtf16, units.size() / 2) + units;
}

std::string bitsObject(unsigned kind, double number) {
  std::string object(1, static_cast<char>(kind << 4U | 3U));
  appendNumber(object, std::bit_cast<std::uint64_t>(number), sizeof(double));
  return object;
}

/// The object of a value that has no elements.
struct ScalarObject {
  std::optional<std::string> operator()(const std::string& text) const { return textObject(text); }
  std::optional<std::string> operator()(const PropertyList::Data& data) const {
    return header(kData, data.bytes.size()) + data.bytes;
  }
  std::optional<std::string> operator()(bool flag) const {
    return std::string(1, static_cast<char>(flag ? kTrue : kFalse));
  }
  std::optional<std::string> operator()(std::int64_t number) const {
    return integerObject(static_cast<std::uint64_t>(number));
  }
  std::optional<std::string> operator()(std::uint64_t number) const {
    if (number <= static_cast<std::uint64_t>(INT64_MAX)) return integerObject(number);
    std::string object(1, static_cast<char>(kInteger << 4U | 4U));  // of 16 bytes: one of 8 is negative
    appendNumber(object, 0, 8);
    appendNumber(object, number, 8);
    return object;
  }
  std::optional<std::string> operator()(double number) const { return bitsObject(kReal, number); }
  std::optional<std::string> operator()(Date date) const {
    return bitsObject(kDate, date.unixTime() - kReferenceDate);
  }
  std::optional<std::string> operator()(PropertyList::Uid uid) const {
    const std::size_t size = sizeFor(uid.value);
    std::string object(1, static_cast<char>(kUid << 4U | (size - 1)));
    appendNumber(object, uid.value, size);
    return object;
  }
  std::optional<std::string> operator()(const PropertyList::Array&) const { return std::nullopt; }
  std::optional<std::string> operator()(const PropertyList::Dictionary&) const { return std::nullopt; }
};

}  // namespace

/// Whether its marker tells that a PropertyList can hold it, as of nearly all of a list.
inline bool BinaryPropertyList::isPlain(const Content& content) {
  if (content.kind == kInteger) return content.count <= 3;
  return content.kind != kSimple && content.kind != kDate && content.kind != kUid;
}

/// Within the bytes, because the table is.
inline std::size_t BinaryPropertyList::beginOf(Object object) const {
  return loadNumber(bytes_.data() + table_ + object * offsetSize_, offsetSize_);
}

/// What the marker alone says.
inline BinaryPropertyList::Content BinaryPropertyList::markedContent(Object object) const {
  const std::size_t begin = beginOf(object);
  const auto marker = static_cast<unsigned char>(bytes_[begin]);
  return {static_cast<unsigned>(marker >> 4U), marker & 0xFU, begin + 1};
}

/// Walks the objects from the root, each once, and finds out how deep each reaches and for how many values
/// and bytes it stands.
class BinaryPropertyList::Walk {
 public:
  Walk(const BinaryPropertyList& list, std::size_t mostValues)
      : list_(list),
        mostValues_(static_cast<std::uint32_t>(std::min(mostValues, kMostCounted))),
        mostBytes_(static_cast<std::uint32_t>(
            std::min(std::max(kAlwaysTakenBytes, 8 * list.bytes_.size()), kMostCounted))) {}

  /// Whether a PropertyList can hold all that was met.
  [[nodiscard]] bool isExpressible() const { return isExpressible_; }

  /// Answers 0 or an errno value.
  int fault() {
    if (list_.count_ > mostValues_) return EFBIG;  // before there is a note of each
    known_.resize(list_.count_);
    path_.reserve(std::min(list_.count_, kGreatestNesting + 1));
    if (list_.root_ >= list_.count_ || !meet(list_.root_)) return fault_;
    const bool isSound = withNumbersOf(list_.referenceSize_, [this](auto reference) {
      while (!path_.empty()) {
        if (!proceed(reference)) return false;
      }
      return true;
    });
    return isSound ? 0 : fault_;
  }

 private:
  /// As many values as two may have that are added up in 32 bits.
  static constexpr std::size_t kMostCounted = UINT32_MAX / 2;

  enum class Use : std::uint8_t { value, text, key };
  /// Small, because a table may name an object with a single byte of the file.
  struct Known {
    std::uint32_t values = 0;
    std::uint32_t bytes = 0;
    std::uint16_t height = 0;  ///< 0 while it is not known
    bool isOnPath = false;
    Use use = Use::value;  ///< key is a text that was found to be one
  };
  struct Visit {
    std::uint32_t object = 0;
    std::uint32_t next = 0;
    std::uint32_t values = 1;
    std::uint32_t bytes = 0;
    std::uint16_t height = 1;
  };

  /// Goes on with the last on the path, to its end or to a container in it that has not been met.
  template <typename Reference>
  bool proceed(Reference reference) {
    Visit& visit = path_.back();
    const std::size_t depth = path_.size();
    const std::size_t keys = content_.kind == kDictionary ? content_.count : 0;
    const std::size_t end = elementCount(content_.kind, content_.count);
    const char* const references = list_.bytes_.data() + content_.at;
    for (; visit.next < end; ++visit.next) {
      const Object element = reference.load(references + visit.next * reference.size);
      if (element >= list_.count_) return false;
      if (known_[element].height == 0) {
        if (!meet(element)) return false;
        if (path_.size() > depth) return true;
      }
      if (visit.next < keys && !isKey(element)) return false;
      if (!add(visit, known_[element])) return false;
    }
    return leave();
  }

  bool add(Visit& visit, const Known& element) {
    visit.height = std::max(visit.height, static_cast<std::uint16_t>(element.height + 1));
    visit.values += element.values;
    visit.bytes += element.bytes;
    if (visit.values > mostValues_ || visit.bytes > mostBytes_) return isTooMuch();
    return path_.size() + element.height <= kGreatestNesting + 1;
  }

  /// An object that is met for the first time: a value has no elements, a container is entered.
  bool meet(Object object) {
    const auto content = list_.readContent(object);
    if (!content || known_[object].isOnPath) return false;
    if (!isContainer(content->kind)) {
      const bool isText = isTextKind(content->kind);
      const std::size_t bytes = isCounted(content->kind) ? *list_.payloadSize(*content) : 0;
      if (bytes > mostBytes_) return isTooMuch();
      if (isExpressible_ && !isPlain(*content)) isExpressible_ = list_.isExpressible(*content);
      known_[object] = {1, static_cast<std::uint32_t>(bytes), 1, false, isText ? Use::text : Use::value};
      return true;
    }
    if (elementCount(content->kind, content->count) > mostValues_) return isTooMuch();
    if (path_.size() > kGreatestNesting) return false;
    known_[object].isOnPath = true;
    path_.push_back({.object = static_cast<std::uint32_t>(object)});
    content_ = *content;
    return true;
  }

  /// A text without zero characters, at which readers in C would end it. Each is looked at once; no writer
  /// has one lie in another, so that all together are no longer than the file.
  bool isKey(Object object) {
    Known& known = known_[object];
    if (known.use != Use::text) return known.use == Use::key;
    const Content content = list_.contentOf(object);
    keyBytes_ += known.bytes;
    if (keyBytes_ > list_.bytes_.size()) return false;
    const std::string_view text(list_.bytes_.data() + content.at, known.bytes);
    if (hasZeroCharacter(text, content.kind == kUtf16 ? 2 : 1)) return false;
    known.use = Use::key;
    return true;
  }

  bool leave() {
    const Visit& visit = path_.back();
    known_[visit.object] = {visit.values, visit.bytes, visit.height, false, Use::value};
    path_.pop_back();
    if (!path_.empty()) content_ = list_.contentOf(path_.back().object);
    return true;
  }

  bool isTooMuch() {
    fault_ = EFBIG;
    return false;
  }

  const BinaryPropertyList& list_;
  std::uint32_t mostValues_;
  std::uint32_t mostBytes_;  ///< of all texts and data
  std::size_t keyBytes_ = 0;
  std::vector<Known> known_;
  std::vector<Visit> path_;
  Content content_;  ///< of the last on the path
  bool isExpressible_ = true;
  int fault_ = EINVAL;
};

/// Makes values of a list's objects.
class BinaryPropertyList::Values {
 public:
  explicit Values(const BinaryPropertyList& list) : list_(list) {}

  // NOLINTNEXTLINE(misc-no-recursion): the walk has seen how deep it is
  [[nodiscard]] PropertyList of(Object object) const {
    const Content content = list_.contentOf(object);
    switch (content.kind) {
      case kSimple:
        return content.count == kTrue;
      case kInteger:
        return integer(content);
      case kReal:
        return real(content);
      case kDate:
        return Date::fromUnixTime(kReferenceDate + std::bit_cast<double>(lastEight(content)));
      case kData:
        return PropertyList::Data{list_.bytes_.substr(content.at, content.count)};
      case kUid:
        return PropertyList::Uid{lastEight(content)};
      case kArray:
      case kSet:
        return array(content);
      case kDictionary:
        return dictionary(content);
      default:
        return *list_.text(object);
    }
  }

 private:
  /// The last eight bytes of a number, which are all of most.
  [[nodiscard]] std::uint64_t lastEight(const Content& content) const {
    const std::size_t size = *list_.payloadSize(content);
    const std::size_t length = std::min<std::size_t>(size, 8);
    return *list_.number(content.at + size - length, length);
  }

  /// One of eight bytes has a sign, shorter ones have none; one of sixteen has either.
  [[nodiscard]] PropertyList integer(const Content& content) const {
    const std::uint64_t number = lastEight(content);
    const bool isLong = *list_.payloadSize(content) == 16;
    const bool isLarge = number > static_cast<std::uint64_t>(INT64_MAX);
    if (isLong && isLarge && *list_.number(content.at, 8) == 0) return number;
    return static_cast<std::int64_t>(number);
  }

  [[nodiscard]] PropertyList real(const Content& content) const {
    const std::uint64_t bits = lastEight(content);
    if (*list_.payloadSize(content) == 8) return std::bit_cast<double>(bits);
    return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
  }

  // NOLINTNEXTLINE(misc-no-recursion)
  [[nodiscard]] PropertyList array(const Content& content) const {
    PropertyList::Array array;
    array.reserve(content.count);
    for (std::size_t at = 0; at < content.count; ++at) array.push_back(of(list_.reference(content, at)));
    return array;
  }

  // NOLINTNEXTLINE(misc-no-recursion)
  [[nodiscard]] PropertyList dictionary(const Content& content) const {
    PropertyList::Dictionary dictionary;
    dictionary.reserve(content.count);
    for (std::size_t at = 0; at < content.count; ++at) {
      dictionary.emplace_back(*list_.text(list_.reference(content, at)),
                              of(list_.reference(content, content.count + at)));
    }
    return PropertyList::withoutRepeats(std::move(dictionary));
  }

  const BinaryPropertyList& list_;
};

/// A list that is written, object by object: the old ones that are still referred to, then
/// the new ones.
class BinaryPropertyList::Copy {
 public:
  explicit Copy(const BinaryPropertyList& list) : list_(list), numbers_(list.count_, kNotKept) {}

  Result<std::string> make(std::string_view key, const std::vector<Object>& objects,
                           const PropertyList::Array& appended) {
    const Content root = list_.contentOf(list_.root_);
    if (root.kind != kDictionary || !isSoundText(key)) return systemError(EINVAL, "");
    const auto index = list_.indexOfKey(root, key);
    keep(root, index, objects);
    countKept();
    std::vector<std::size_t> elements;
    elements.reserve(objects.size() + appended.size());
    for (const Object object : objects) elements.push_back(numbers_[object]);
    for (const PropertyList& value : appended) {
      const auto added = add(value);
      if (!added) return systemError(EINVAL, "");
      elements.push_back(*added);
    }
    const std::size_t array = add({kArray, elements.size(), std::move(elements), {}});
    return write(newRoot(root, index, array, key), numbers_[list_.root_]);
  }

  Result<std::string> makeFrom(const PropertyList& value) {
    const auto root = add(value);
    if (!root) return systemError(EINVAL, "");
    return write({}, *root);
  }

 private:
  static constexpr std::size_t kNotKept = SIZE_MAX;

  /// An object that is not in the list yet: its references, or its bytes.
  struct NewObject {
    unsigned kind = 0;
    std::size_t count = 0;
    std::vector<std::size_t> references = {};
    std::string bytes = {};
  };

  void keep(const Content& root, std::optional<std::size_t> index, const std::vector<Object>& objects) {
    numbers_[list_.root_] = 0;
    for (std::size_t at = 0; at < 2 * root.count; ++at) {
      if (!index || at != root.count + *index) mark(list_.reference(root, at));
    }
    for (const Object object : objects) mark(object);
    withNumbersOf(list_.referenceSize_, [this](auto reference) {
      while (!pending_.empty()) {
        const Content content = pending_.back();
        pending_.pop_back();
        const char* at = list_.bytes_.data() + content.at;
        const char* const end = at + elementCount(content.kind, content.count) * reference.size;
        for (; at < end; at += reference.size) mark(reference.load(at));
      }
    });
  }

  void mark(Object object) {
    if (numbers_[object] == kNotKept) markNew(object);
  }

  void markNew(Object object) {
    numbers_[object] = 0;
    const Content content = list_.contentOf(object);
    if (isContainer(content.kind)) pending_.push_back(content);
  }

  void countKept() {
    for (std::size_t& number : numbers_) {
      if (number != kNotKept) number = kept_++;
    }
  }

  std::size_t add(NewObject object) {
    new_.push_back(std::move(object));
    return kept_ + new_.size() - 1;
  }

  // NOLINTNEXTLINE(misc-no-recursion): what is appended is the caller's own
  std::optional<std::size_t> add(const PropertyList& value) {
    if (const auto* text = value.as<std::string>()) return addText(*text);
    if (const auto* array = value.as<PropertyList::Array>()) return addArray(*array);
    if (const auto* dictionary = value.as<PropertyList::Dictionary>()) return addDictionary(*dictionary);
    return addBytes(std::visit(ScalarObject(), value.value()));
  }

  /// The same text is one object.
  std::optional<std::size_t> addText(const std::string& text) {
    const auto known = texts_.find(text);
    if (known != texts_.end()) return known->second;
    const auto added = addBytes(textObject(text));
    if (added) texts_.emplace(text, *added);
    return added;
  }

  std::optional<std::size_t> addBytes(std::optional<std::string> bytes) {
    if (!bytes) return std::nullopt;
    return add({0, 0, {}, std::move(*bytes)});
  }

  // NOLINTNEXTLINE(misc-no-recursion)
  std::optional<std::size_t> addArray(const PropertyList::Array& array) {
    std::vector<std::size_t> references;
    for (const PropertyList& value : array) {
      const auto added = add(value);
      if (!added) return std::nullopt;
      references.push_back(*added);
    }
    return add({kArray, array.size(), std::move(references), {}});
  }

  // NOLINTNEXTLINE(misc-no-recursion)
  std::optional<std::size_t> addDictionary(const PropertyList::Dictionary& dictionary) {
    std::vector<std::size_t> references(2 * dictionary.size());
    for (std::size_t at = 0; at < dictionary.size(); ++at) {
      const auto key = addText(dictionary[at].first);
      const auto value = add(dictionary[at].second);
      if (!key || !value) return std::nullopt;
      references[at] = *key;
      references[dictionary.size() + at] = *value;
    }
    return add({kDictionary, dictionary.size(), std::move(references), {}});
  }

  /// The root's references with the new array under the key.
  std::vector<std::size_t> newRoot(const Content& root, std::optional<std::size_t> index, std::size_t array,
                                   std::string_view key) {
    std::vector<std::size_t> keys;
    std::vector<std::size_t> values;
    for (std::size_t at = 0; at < root.count; ++at) {
      keys.push_back(numbers_[list_.reference(root, at)]);
      values.push_back(index == at ? array : numbers_[list_.reference(root, root.count + at)]);
    }
    if (!index) {
      keys.push_back(*addBytes(textObject(std::string(key))));
      values.push_back(array);
    }
    keys.insert(keys.end(), values.begin(), values.end());
    return keys;
  }

  std::string write(const std::vector<std::size_t>& root, std::size_t rootNumber) {
    referenceSize_ = sizeFor(kept_ + new_.size());
    output_.reserve(list_.bytes_.size() + list_.bytes_.size() / 2);
    output_ = kMagic;
    offsets_.reserve(kept_ + new_.size());
    withNumbersOf(list_.referenceSize_, [&](auto old) {
      withNumbersOf(referenceSize_, [&](auto now) { writeKept(root, old, now); });
    });
    for (const NewObject& object : new_) writeNew(object);
    writeTable(rootNumber);
    return std::move(output_);
  }

  template <typename Old, typename Now>
  void writeKept(const std::vector<std::size_t>& root, Old old, Now now) {
    for (Object object = 0; object < list_.count_; ++object) {
      if (numbers_[object] == kNotKept) continue;
      offsets_.push_back(output_.size());
      if (object == list_.root_) {
        writeContainer(kDictionary, root.size() / 2, root);
      } else {
        writeKept(object, old, now);
      }
    }
  }

  /// As it is in the list, from its marker; a container with its elements' new numbers.
  template <typename Old, typename Now>
  void writeKept(Object object, Old old, Now now) {
    const std::size_t begin = list_.beginOf(object);
    const Content content = list_.contentOf(object);
    const bool holdsOthers = isContainer(content.kind);
    const std::size_t size = holdsOthers ? 0 : *list_.payloadSize(content);
    output_.append(list_.bytes_, begin, content.at - begin + size);
    if (!holdsOthers) return;
    const std::size_t elements = elementCount(content.kind, content.count);
    const char* from = list_.bytes_.data() + content.at;
    char* to = more(elements * now.size);
    for (std::size_t at = 0; at < elements; ++at, from += old.size, to += now.size) {
      now.store(to, numbers_[old.load(from)]);
    }
  }

  /// Room for that many bytes more, to be filled.
  char* more(std::size_t size) {
    const std::size_t begin = output_.size();
    output_.resize(begin + size);
    return output_.data() + begin;
  }

  void writeContainer(unsigned kind, std::size_t count, const std::vector<std::size_t>& references) {
    output_ += header(kind, count);
    appendNumbers(references, referenceSize_);
  }

  void appendNumbers(const std::vector<std::size_t>& numbers, std::size_t size) {
    char* to = more(numbers.size() * size);
    withNumbersOf(size, [&](auto number) {
      for (const std::size_t each : numbers) {
        number.store(to, each);
        to += number.size;
      }
    });
  }

  void writeNew(const NewObject& object) {
    offsets_.push_back(output_.size());
    if (object.bytes.empty()) {
      writeContainer(object.kind, object.count, object.references);
    } else {
      output_ += object.bytes;
    }
  }

  void writeTable(std::size_t rootNumber) {
    const std::size_t table = output_.size();
    const std::size_t offsetSize = sizeFor(table);
    appendNumbers(offsets_, offsetSize);
    output_.append(6, '\0');
    appendNumber(output_, offsetSize, 1);
    appendNumber(output_, referenceSize_, 1);
    appendNumber(output_, offsets_.size(), 8);
    appendNumber(output_, rootNumber, 8);
    appendNumber(output_, table, 8);
  }

  const BinaryPropertyList& list_;
  std::vector<std::size_t> numbers_;  ///< by the old number: the new one, or kNotKept
  std::vector<Content> pending_;
  std::size_t kept_ = 0;
  std::vector<NewObject> new_;
  /// The values' own, which outlive this. In an order, because a table could be made slow by who chose them.
  std::map<std::string_view, std::size_t> texts_;
  std::size_t referenceSize_ = 1;
  std::vector<std::size_t> offsets_;
  std::string output_;
};

Result<BinaryPropertyList> BinaryPropertyList::open(std::string bytes, std::size_t mostValues) {
  BinaryPropertyList list(std::move(bytes));
  if (!list.readTrailer()) return systemError(EINVAL, "");
  Walk walk(list, mostValues);
  if (const int fault = walk.fault(); fault != 0) return systemError(fault, "");
  list.isExpressible_ = walk.isExpressible();
  return list;
}

Result<PropertyList> BinaryPropertyList::value() const {
  if (!isExpressible_) return systemError(ENOTSUP, "");
  return Values(*this).of(root_);
}

BinaryPropertyList BinaryPropertyList::emptyDictionary() {
  std::string bytes(kMagic);
  bytes += header(kDictionary, 0);
  appendNumber(bytes, kMagic.size(), 1);  // the table: its one object begins behind the magic
  bytes += std::string(6, '\0') + "\x01\x01";
  for (const std::uint64_t number : {1UL, 0UL, kMagic.size() + 1}) appendNumber(bytes, number, 8);
  BinaryPropertyList list(std::move(bytes));
  static_cast<void>(list.readTrailer());
  return list;
}

bool BinaryPropertyList::readTrailer() {
  if (bytes_.size() < kMagic.size() + kTrailerSize || !bytes_.starts_with(kMagic)) return false;
  const std::size_t trailer = bytes_.size() - kTrailerSize;
  offsetSize_ = static_cast<unsigned char>(bytes_[trailer + 6]);
  referenceSize_ = static_cast<unsigned char>(bytes_[trailer + 7]);
  count_ = *number(trailer + 8, 8);
  root_ = *number(trailer + 16, 8);
  table_ = *number(trailer + 24, 8);
  const bool sizesFit = offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8;
  if (!sizesFit || table_ < kMagic.size() || table_ > trailer) return false;
  // An object takes a byte at least. No writer has several begin at the same one, and a reader that makes a
  // note of each would need many times the file in memory.
  return count_ <= table_ - kMagic.size() && count_ <= (trailer - table_) / offsetSize_;
}

std::optional<std::size_t> BinaryPropertyList::number(std::size_t at, std::size_t size) const {
  if (at > bytes_.size() || size > bytes_.size() - at || size > 8) return std::nullopt;
  return loadNumber(bytes_.data() + at, size);
}

std::optional<BinaryPropertyList::Content> BinaryPropertyList::readContent(Object object) const {
  if (beginOf(object) >= bytes_.size()) return std::nullopt;
  Content content = markedContent(object);
  if (isCounted(content.kind) && content.count == kCountFollows) {
    const auto sizeMarker = number(content.at, 1);
    if (!sizeMarker || *sizeMarker >> 4U != kInteger || (*sizeMarker & 0xFU) > 3) return std::nullopt;
    const std::size_t size = std::size_t{1} << (*sizeMarker & 0xFU);
    const auto count = number(content.at + 1, size);
    if (!count) return std::nullopt;
    content.count = *count;
    content.at += 1 + size;
  }
  if (content.count > bytes_.size()) return std::nullopt;
  const auto size = payloadSize(content);
  if (!size || content.at > bytes_.size() || *size > bytes_.size() - content.at) return std::nullopt;
  return content;
}

/// nullopt for what is no object.
std::optional<std::size_t> BinaryPropertyList::payloadSize(const Content& content) const {
  const auto onlyIf = [](bool isSound, std::size_t size) {
    return isSound ? std::optional(size) : std::nullopt;
  };
  const std::size_t count = content.count;
  switch (content.kind) {
    case kSimple:
      return onlyIf(count == kNull || count == kFalse || count == kTrue, 0);
    case kInteger:
      return onlyIf(count <= 4, std::size_t{1} << (count & 7U));
    case kReal:
      return onlyIf(count == 2 || count == 3, std::size_t{1} << (count & 7U));
    case kDate:
      return onlyIf(count == 3, 8);
    case kData:
    case kAscii:
    case kUtf8:
      return count;
    case kUtf16:
      return 2 * count;
    case kUid:
      return count + 1;
    case kArray:
    case kSet:
    case kDictionary:
      return elementCount(content.kind, count) * referenceSize_;
    default:
      return std::nullopt;
  }
}

bool BinaryPropertyList::isExpressible(const Content& content) const {
  const std::size_t size = payloadSize(content).value_or(0);
  switch (content.kind) {
    case kSimple:
      return content.count != kNull;
    case kDate:
      return std::isfinite(std::bit_cast<double>(std::uint64_t{*number(content.at, size)}));
    case kInteger:
    case kUid: {
      if (size <= 8) return true;
      const std::uint64_t upper = *number(content.at, size - 8);
      const bool isNegative = *number(content.at + size - 8, 1) >= 0x80;
      return upper == 0 || (content.kind == kInteger && upper == UINT64_MAX && isNegative);
    }
    default:
      return true;
  }
}

BinaryPropertyList::Content BinaryPropertyList::contentOf(Object object) const {
  // All within the bytes, because the walk has been here.
  const char* const marker = bytes_.data() + beginOf(object);
  Content content = markedContent(object);
  if (content.count == kCountFollows && isCounted(content.kind)) {
    const std::size_t size = std::size_t{1} << (static_cast<unsigned char>(marker[1]) & 3U);
    content.count = loadNumber(marker + 2, size);
    content.at += 1 + size;
  }
  return content;
}

BinaryPropertyList::Object BinaryPropertyList::reference(const Content& container, std::size_t index) const {
  // Within the bytes, because the container is.
  return loadNumber(bytes_.data() + container.at + index * referenceSize_, referenceSize_);
}

std::optional<std::size_t> BinaryPropertyList::indexOfKey(const Content& dictionary,
                                                          std::string_view key) const {
  for (std::size_t index = dictionary.count; index-- > 0;) {
    if (isText(reference(dictionary, index), key)) return index;
  }
  return std::nullopt;
}

bool BinaryPropertyList::isDictionary(Object object) const {
  return contentOf(object).kind == kDictionary;
}

bool BinaryPropertyList::isArray(Object object) const {
  return contentOf(object).kind == kArray;
}

std::optional<BinaryPropertyList::Object> BinaryPropertyList::find(Object dictionary,
                                                                   std::string_view key) const {
  const Content content = contentOf(dictionary);
  if (content.kind != kDictionary) return std::nullopt;
  const auto index = indexOfKey(content, key);
  return index ? std::optional(reference(content, content.count + *index)) : std::nullopt;
}

std::vector<BinaryPropertyList::Object> BinaryPropertyList::elements(Object array) const {
  const Content content = contentOf(array);
  if (content.kind != kArray) return {};
  std::vector<Object> elements(content.count);
  const char* from = bytes_.data() + content.at;
  withNumbersOf(referenceSize_, [&](auto reference) {
    for (Object& element : elements) {
      element = reference.load(from);
      from += reference.size;
    }
  });
  return elements;
}

bool BinaryPropertyList::isText(Object object, std::string_view text) const {
  const Content content = contentOf(object);
  if (!isTextKind(content.kind)) return false;
  const std::string_view payload = std::string_view(bytes_).substr(content.at, *payloadSize(content));
  if (content.kind != kUtf16) return isSoundTextOf(payload, text);
  // A unit stands for one to three bytes: a text that cannot be equal, however long, is not converted.
  if (content.count > text.size() || content.count * 3 < text.size()) return false;
  return utf8FromUtf16(payload) == text;
}

std::optional<std::string> BinaryPropertyList::text(Object object) const {
  const Content content = contentOf(object);
  if (!isTextKind(content.kind)) return std::nullopt;
  const std::string_view payload = std::string_view(bytes_).substr(content.at, *payloadSize(content));
  return content.kind == kUtf16 ? utf8FromUtf16(payload) : soundText(payload);
}

std::optional<std::int64_t> BinaryPropertyList::integer(Object object) const {
  const Content content = contentOf(object);
  const std::size_t size = payloadSize(content).value_or(0);
  if (content.kind == kInteger) {
    // Of sixteen bytes the lower eight.
    const std::size_t at = size > 8 ? content.at + size - 8 : content.at;
    return static_cast<std::int64_t>(number(at, std::min<std::size_t>(size, 8)).value_or(0));
  }
  return std::nullopt;
}

Result<std::string> BinaryPropertyList::serialize(const PropertyList& value) {
  return Copy(emptyDictionary()).makeFrom(value);
}

Result<std::string> BinaryPropertyList::replacingArray(std::string_view key,
                                                       const std::vector<Object>& objects,
                                                       const PropertyList::Array& appended) const {
  return Copy(*this).make(key, objects, appended);
}

void BinaryPropertyList::Lookup::enter(Object object) {
  dictionary_ = list_.contentOf(object);
  if (dictionary_.kind != kDictionary) dictionary_ = {kDictionary, 0, 0};
  const std::string_view references(list_.bytes_.data() + dictionary_.at,
                                    dictionary_.count * list_.referenceSize_);
  if (references == references_) return;
  references_ = references;
  recognise();
}

void BinaryPropertyList::Lookup::recognise() {
  const auto known = known_.find(*references_);
  indexes_ = known == known_.end() ? indexes() : known->second;
  // Where all differ nothing is gained by remembering them.
  constexpr std::size_t kMostKnown = 64;
  if (known == known_.end() && known_.size() < kMostKnown) known_.emplace(*references_, indexes_);
}

BinaryPropertyList::Lookup::Indexes BinaryPropertyList::Lookup::indexes() const {
  Indexes indexes;
  for (const std::string& key : keys_) {
    const auto index = list_.indexOfKey(dictionary_, key);
    indexes.push_back(index ? dictionary_.count + *index : kMissing);
  }
  return indexes;
}

}  // namespace foundation
