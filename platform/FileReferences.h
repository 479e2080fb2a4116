#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/foundation/Result.h"

namespace platform {

/// An opaque reference to an item of the file system, the size of the Mac's FSRef. It stands for the item,
/// not for its path, for as long as this process runs. All zeros stand for no item.
struct FSRef {
  std::array<std::uint8_t, 80> hidden{};
  bool operator==(const FSRef&) const = default;
};

/// References to items that outlive the items' names.
class FileReferences {
 public:
  virtual ~FileReferences() = default;

  /// The reference of the item at a path; a link in the last component is the item.
  [[nodiscard]] virtual foundation::Result<FSRef> reference(const std::string& path) = 0;

  /// Where the item is now; ENOENT when it is gone, or cannot be found any more.
  [[nodiscard]] virtual foundation::Result<std::string> path(const FSRef& reference) = 0;
};

}  // namespace platform
