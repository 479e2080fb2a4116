#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/foundation/PropertyList.h"
#include "platform/foundation/Result.h"

namespace foundation {

/// A binary property list, looked into and changed without being unpacked: for files of which a little is of
/// interest and the rest is to stay as it is. The layout is that of Apple's CFBinaryPList.c: objects, each a
/// marker byte (kind and count) and its content; a table of where they begin; a trailer. Arrays and
/// dictionaries hold the numbers of their elements.
class BinaryPropertyList {
 public:
  /// The number of an object. Those answered here are valid for the life of the list.
  using Object = std::size_t;

  /// Looks at all that the root stands for. EINVAL when anything in it lies outside the bytes, contains
  /// itself, is of an unknown kind or nested deeper than 512, or a key is no text or has a zero character;
  /// EFBIG when it stands for more than that many values, or for more bytes of text and data than 64 MiB and
  /// eight times the list. Uses a constant amount of stack.
  [[nodiscard]] static Result<BinaryPropertyList> open(std::string bytes, std::size_t mostValues);

  /// A value as a binary property list; each text is written once. EINVAL for text that is not UTF-8 or has a
  /// zero character.
  [[nodiscard]] static Result<std::string> serialize(const PropertyList& value);

  /// All of it as a value, in time in proportion to what it stands for; a set as an array, and of a key that
  /// stands twice the last value, in the first's place. Texts are as text() answers them, so that the value
  /// can be written again. ENOTSUP where it holds what no PropertyList can: a null, a date that is no moment,
  /// a whole number or a reference (Uid) beyond 64 bits.
  [[nodiscard]] Result<PropertyList> value() const;

  /// The list of an empty dictionary.
  [[nodiscard]] static BinaryPropertyList emptyDictionary();

  [[nodiscard]] Object root() const { return root_; }
  [[nodiscard]] bool isDictionary(Object object) const;
  [[nodiscard]] bool isArray(Object object) const;

  /// The value of a dictionary's key: the last, where it stands twice, as in a list written as XML; nullopt
  /// when there is none or the object is no dictionary.
  [[nodiscard]] std::optional<Object> find(Object dictionary, std::string_view key) const;
  /// Looks the same keys up in many dictionaries.
  class Lookup;
  /// The elements of an array; none when the object is no array.
  [[nodiscard]] std::vector<Object> elements(Object array) const;

  /// Whether text() answers that one.
  [[nodiscard]] bool isText(Object object, std::string_view text) const;
  /// UTF-8 without zero characters, at which readers in C would end it. U+FFFD stands for each of them, for
  /// each half of a pair and for each byte that is no UTF-8, so that a text may become three times as long.
  /// nullopt for an object of another kind.
  [[nodiscard]] std::optional<std::string> text(Object object) const;
  /// A whole number, as much of it as fits; nullopt for an object of another kind.
  [[nodiscard]] std::optional<std::int64_t> integer(Object object) const;

  /// The bytes of the same list in which the root's key holds an array of the objects, then of the values
  /// appended. EINVAL for text that serialize() refuses, and where the root is no dictionary. All other
  /// values stay as they are, and in their order; what nothing refers to any more is left out.
  [[nodiscard]] Result<std::string> replacingArray(std::string_view key, const std::vector<Object>& objects,
                                                   const PropertyList::Array& appended) const;

 private:
  /// An object's kind (the upper half of its marker), how many bytes, characters or elements it has, and
  /// where they begin.
  struct Content {
    unsigned kind = 0;
    std::size_t count = 0;
    std::size_t at = 0;
  };
  class Walk;
  class Copy;
  class Values;

  explicit BinaryPropertyList(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] bool readTrailer();
  [[nodiscard]] std::optional<std::size_t> number(std::size_t at, std::size_t size) const;
  /// Of its marker. REQUIRES an object below count_.
  [[nodiscard]] std::size_t beginOf(Object object) const;
  [[nodiscard]] Content markedContent(Object object) const;
  [[nodiscard]] std::optional<Content> readContent(Object object) const;
  [[nodiscard]] std::optional<std::size_t> payloadSize(const Content& content) const;
  /// Whether a PropertyList can hold what has no elements.
  [[nodiscard]] static bool isPlain(const Content& content);
  [[nodiscard]] bool isExpressible(const Content& content) const;
  /// REQUIRES an object that the walk has seen.
  [[nodiscard]] Content contentOf(Object object) const;
  [[nodiscard]] Object reference(const Content& container, std::size_t index) const;
  [[nodiscard]] std::optional<std::size_t> indexOfKey(const Content& dictionary, std::string_view key) const;

  std::string bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t count_ = 0;
  std::size_t table_ = 0;
  Object root_ = 0;
  bool isExpressible_ = true;  ///< all that the root stands for
};

/// Looks the same keys up in many dictionaries, one after the other. In a list of like entries most have the
/// same keys in the same order: they are recognised by that, and no text is compared again. The list is to
/// outlive it, where it lies.
class BinaryPropertyList::Lookup {
 public:
  Lookup(const BinaryPropertyList& list, std::vector<std::string> keys)
      : list_(list), keys_(std::move(keys)) {}

  /// Turns to an object; in one that is no dictionary nothing is found.
  void enter(Object object);
  /// What find() answers for the key of that index. REQUIRES that an object was entered.
  [[nodiscard]] std::optional<Object> operator[](std::size_t key) const {
    const std::size_t index = indexes_[key];
    return index == kMissing ? std::nullopt : std::optional(list_.reference(dictionary_, index));
  }

 private:
  static constexpr std::size_t kMissing = SIZE_MAX;
  /// Of each key the reference to its value.
  using Indexes = std::vector<std::size_t>;

  void recognise();
  [[nodiscard]] Indexes indexes() const;

  const BinaryPropertyList& list_;
  std::vector<std::string> keys_;
  std::unordered_map<std::string_view, Indexes> known_;  ///< by the references to a dictionary's keys
  std::optional<std::string_view> references_;           ///< those of the dictionary entered last
  Indexes indexes_;
  Content dictionary_;
};

}  // namespace foundation
