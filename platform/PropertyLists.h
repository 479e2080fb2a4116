#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/foundation/PropertyList.h"
#include "platform/foundation/Result.h"

namespace platform {

enum class PropertyListFormat { xml, binary };

/// The largest property-list file that is read and written: preferences, services and versions of programs
/// are a few KiB. Root reads files that their users make, so that more would only be a way to use its memory
/// up.
inline constexpr std::uint64_t kLargestPropertyList = 1ULL << 20;

/// Deeper nesting than any application writes; what is deeper is taken for an attack.
inline constexpr std::size_t kGreatestNesting = 512;

/// More than a reader is willing to take.
struct PropertyListLimits {
  std::uint64_t bytes = kLargestPropertyList;
  /// Keys count, as do the values that a binary property list stands for by referring to one many times.
  std::size_t values = 100'000;
};

/// Property lists as bytes, XML (Apple's PropertyList-1.0 DTD) and binary ("bplist00").
class PropertyLists {
 public:
  virtual ~PropertyLists() = default;

  /// EINVAL for anything that is not a whole, sound property list; ENOTSUP, where the two can be told apart,
  /// for one that holds what no PropertyList can, so that nobody takes it for worthless; EFBIG beyond the
  /// limits, by default more than any application writes. What was read can be written in the binary format.
  [[nodiscard]] virtual foundation::Result<foundation::PropertyList> parse(
      std::string_view bytes, const PropertyListLimits& limits = {}) = 0;

  [[nodiscard]] virtual foundation::Result<std::string> serialize(const foundation::PropertyList& value,
                                                                  PropertyListFormat format) = 0;
};

/// Reads a property-list file. Anything unreadable, too large or not a regular file is an error.
[[nodiscard]] foundation::Result<foundation::PropertyList> readPropertyList(const std::string& path);

/// Reads a property-list file whose root is a dictionary; EINVAL when it is anything else.
[[nodiscard]] foundation::Result<foundation::PropertyList> readDictionary(const std::string& path);

/// Copies a file that is no property list and is about to be replaced, so that nothing in it is lost: to
/// "NAME (unreadable DATE).plist" beside it, where nothing is. Answers that path. The file itself stays, for
/// its owner and mode to be taken over.
[[nodiscard]] foundation::Result<std::string> keepUnreadableAside(const std::string& path);

/// Writes a property list atomically, keeping the owner and mode of the file that was there. What could not
/// be read again is not written (EFBIG): the file stays as it was.
foundation::Result<void> writePropertyList(const std::string& path, const foundation::PropertyList& value,
                                           PropertyListFormat format);

}  // namespace platform
