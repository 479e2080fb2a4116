#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Result.h"

namespace platform {

/// What an item is.
enum class EntryKind { folder, link, other, unknown };

/// What an entry of a folder is, as far as the listing itself tells. The name belongs to the listing.
struct FolderEntry {
  std::string_view name;
  EntryKind kind = EntryKind::unknown;
  bool operator==(const FolderEntry&) const = default;
};

/// The entries of a folder, sorted by the bytes of their names. All names lie in one piece of memory, because
/// folders of many thousand entries are common.
class FolderListing {
 public:
  using value_type = FolderEntry;
  using const_iterator = std::vector<FolderEntry>::const_iterator;

  FolderListing() = default;
  FolderListing(FolderListing&&) = default;
  FolderListing& operator=(FolderListing&&) = default;
  FolderListing(const FolderListing&) = delete;  // its names would stay those of the other
  FolderListing& operator=(const FolderListing&) = delete;

  /// Adds an entry; none can be looked at before sort().
  void add(std::string_view name, EntryKind kind) {
    names_.insert(names_.end(), name.begin(), name.end());
    entries_.push_back({name, kind});
  }
  void sort() {
    const char* at = names_.data();
    for (FolderEntry& entry : entries_) {
      entry.name = {at, entry.name.size()};
      at += entry.name.size();
    }
    std::sort(entries_.begin(), entries_.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  }

  [[nodiscard]] const_iterator begin() const { return entries_.begin(); }
  [[nodiscard]] const_iterator end() const { return entries_.end(); }
  [[nodiscard]] std::size_t size() const { return entries_.size(); }

 private:
  std::vector<char> names_;  // not a string: moving it must not move the characters
  std::vector<FolderEntry> entries_;
};

/// Tells items apart, whatever path they are reached by.
struct ItemIdentity {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;
  auto operator<=>(const ItemIdentity&) const = default;  // NOLINT(modernize-use-nullptr)
};

/// Questions about whole folders, answered without a look at each path by itself. Nothing is opened but
/// folders; links are followed unless said otherwise.
class FolderQueries {
 public:
  virtual ~FolderQueries() = default;

  /// The entries of a folder without "." and "..", sorted by the bytes of their names.
  [[nodiscard]] virtual foundation::Result<FolderListing> entries(const std::string& path) = 0;

  /// Bytes: the sum of what a folder holds, or the size of another item itself (of a link: the length of its
  /// target). Folders have no size of their own; links to folders count with what those hold, links to
  /// anything else with their own length. A folder that is met again inside itself counts nothing there. What
  /// is missing, vanishes meanwhile or cannot be looked at counts nothing.
  [[nodiscard]] virtual std::uint64_t totalSize(const std::string& path) = 0;

  /// The identity of what is at a path, or nullopt where nothing is.
  [[nodiscard]] virtual std::optional<ItemIdentity> identity(const std::string& path) = 0;
};

}  // namespace platform
