#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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
  /// itself, is of an unknown kind or nested deeper than 512; EFBIG when it stands for more than that many
  /// values. Uses a constant amount of stack.
  [[nodiscard]] static Result<BinaryPropertyList> open(std::string bytes, std::size_t mostValues);

  /// A value as a binary property list; each text is written once. EINVAL for text that is not UTF-8.
  [[nodiscard]] static Result<std::string> serialize(const PropertyList& value);

  /// The list of an empty dictionary.
  [[nodiscard]] static BinaryPropertyList emptyDictionary();

  [[nodiscard]] Object root() const { return root_; }
  [[nodiscard]] bool isDictionary(Object object) const;
  [[nodiscard]] bool isArray(Object object) const;

  /// The value of a dictionary's key: the last, where it stands twice, as in a list written as XML; nullopt
  /// when there is none or the object is no dictionary.
  [[nodiscard]] std::optional<Object> find(Object dictionary, std::string_view key) const;
  /// The elements of an array; none when the object is no array.
  [[nodiscard]] std::vector<Object> elements(Object array) const;

  [[nodiscard]] bool isText(Object object, std::string_view text) const;
  /// nullopt for an object of another kind.
  [[nodiscard]] std::optional<std::string> text(Object object) const;
  /// A whole number, as much of it as fits; nullopt for an object of another kind.
  [[nodiscard]] std::optional<std::int64_t> integer(Object object) const;

  /// The bytes of the same list in which the root's key holds an array of the objects, then of the values
  /// appended. EINVAL for text that is not UTF-8, and where the root is no dictionary. All other values stay
  /// as they are, and in their order; what nothing refers to any more is left out.
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

  explicit BinaryPropertyList(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] bool readTrailer();
  [[nodiscard]] std::optional<std::size_t> number(std::size_t at, std::size_t size) const;
  [[nodiscard]] std::optional<Content> readContent(Object object) const;
  [[nodiscard]] std::optional<std::size_t> payloadSize(const Content& content) const;
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
};

}  // namespace foundation
