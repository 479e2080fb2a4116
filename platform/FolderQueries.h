#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Result.h"

namespace platform {

/// What an entry of a folder is, as far as the listing itself tells.
enum class EntryKind { folder, link, other, unknown };

struct FolderEntry {
  std::string name;
  EntryKind kind = EntryKind::unknown;
  bool operator==(const FolderEntry&) const = default;
};

/// Tells items apart, whatever path they are reached by.
struct ItemIdentity {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;
  auto operator<=>(const ItemIdentity&) const = default;
};

/// Questions about whole folders, answered without a look at each path by itself. Nothing is opened but
/// folders; links are followed unless said otherwise.
class FolderQueries {
 public:
  virtual ~FolderQueries() = default;

  /// The entries of a folder without "." and "..", sorted by the bytes of their names.
  [[nodiscard]] virtual foundation::Result<std::vector<FolderEntry>> entries(const std::string& path) = 0;

  /// Bytes: the sum of what a folder holds, or the size of another item itself (of a link: the length of its
  /// target). Folders have no size of their own; links to folders count with what those hold, links to
  /// anything else with their own length. A folder that is met again inside itself counts nothing there. What
  /// is missing, vanishes meanwhile or cannot be looked at counts nothing.
  [[nodiscard]] virtual std::uint64_t totalSize(const std::string& path) = 0;

  /// The identity of what is at a path, or nullopt where nothing is.
  [[nodiscard]] virtual std::optional<ItemIdentity> identity(const std::string& path) = 0;
};

}  // namespace platform
