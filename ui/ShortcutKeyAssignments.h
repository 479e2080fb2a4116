#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/BinaryPropertyList.h"
#include "platform/foundation/PropertyList.h"
#include "platform/foundation/Result.h"

/// The file in which all of the maker's applications keep their key combinations: "com.vordenworks."
/// "shortcutkeys.plist" in the user's Preferences folder (as root: of the user at the console), a dictionary
/// whose key "watchlist" holds the entries.
///
/// A change is made under a lock on the file that nothing else in this system holds: what stands in the file
/// is read, changed and replaced in one step, so that two programs that change it at the same time lose
/// nothing. Everything but the entries changed stays as it is, in its order: the entries of others, keys that
/// nobody here knows, in entries and beside them. The file is always written in the binary format, which
/// all that read property lists understand, because users' lists grow: 100,000 entries take a tenth of the
/// bytes, and a twentieth of the time. Others may write it as XML; that is read as well.
namespace shortcutkeys {

/// Up to which size the file is read.
inline constexpr std::uint64_t kLargestFile = 64ULL << 20;
inline constexpr std::size_t kMostValues = 4'000'000;

/// What an entry of the file says, as far as it is understood here. Whatever has another kind than it should
/// is as good as missing.
struct Assignment {
  std::string bundleId;
  std::optional<std::string> commandId;
  std::uint16_t keyCode = 0;
  std::uint16_t modifiers = 0;
  bool operator==(const Assignment&) const = default;
};

/// The entries, and what becomes of them.
class WatchList {
 public:
  /// EINVAL for what is no property list, no dictionary, or has another kind of value than an array in
  /// the entries' place; EFBIG for more than is read.
  [[nodiscard]] static foundation::Result<WatchList> parse(std::string bytes);
  /// The list of a file that is not there.
  WatchList();

  [[nodiscard]] std::size_t size() const { return entries_.size(); }
  /// nullopt for an entry that is no dictionary. REQUIRES an index below size(), as the functions below.
  [[nodiscard]] std::optional<Assignment> at(std::size_t index) const;
  [[nodiscard]] bool belongsTo(std::size_t index, std::string_view bundleId) const;
  [[nodiscard]] bool hasCommandId(std::size_t index, std::string_view commandId) const;
  /// The entry has parameters, and they are these, one by one.
  [[nodiscard]] bool hasParams(std::size_t index, const std::vector<std::string>& params) const;

  void erase(std::size_t index);
  void append(foundation::PropertyList entry) { appended_.push_back(std::move(entry)); }

  /// The file's new content.
  [[nodiscard]] foundation::Result<std::string> serialize() const;

 private:
  explicit WatchList(foundation::BinaryPropertyList file);
  [[nodiscard]] foundation::Result<void> findEntries();
  [[nodiscard]] bool hasText(std::size_t index, std::string_view key, std::string_view text) const;

  foundation::BinaryPropertyList file_;
  std::vector<foundation::BinaryPropertyList::Object> entries_;
  foundation::PropertyList::Array appended_;
};

/// Where the file is; nullopt where nobody's Preferences folder is known.
[[nodiscard]] std::optional<std::string> assignmentsPath();

/// What stands in the file now; ENOENT where it is missing.
[[nodiscard]] foundation::Result<WatchList> readAssignments();

enum class WhenMissing { leave, create };

/// Reads the file, has it changed and writes it, all under the lock, for which it waits five seconds at most.
/// Answers whether it was written; what failed is said on the system console.
///
/// WhenMissing::create begins a new file where there is none, and where what is there is no list: that is
/// kept beside it as "NAME (unreadable DATE).plist", and nothing is written where it cannot be. With
/// WhenMissing::leave such a file stays where it is, and nothing is written. A file that cannot be read for
/// another reason is not touched.
bool changeAssignments(WhenMissing whenMissing, const std::function<void(WatchList&)>& change);

}  // namespace shortcutkeys
