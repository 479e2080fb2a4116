#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Files.h"
#include "platform/foundation/BinaryPropertyList.h"
#include "platform/foundation/PropertyList.h"
#include "platform/foundation/Result.h"

/// The file in which all of the maker's applications keep their key combinations: "com.vordenworks."
/// "shortcutkeys.plist" in the user's Preferences folder (as root: of the user at the console), a dictionary
/// whose key "watchlist" holds the entries.
///
/// A change is made under a lock on the file that nothing else in this system holds: what stands in the file
/// is read, changed and replaced in one step. That binds the programs that ask for the lock, which are those
/// made of this code: they lose nothing of each other's. One that writes without it is noticed where it has
/// written between the reading and the replacing, and the change is then made again on what it wrote; one
/// that is still writing the file in its place, so that what is there is no list yet, is waited for. What
/// remains is the moment between the last look at the file and its renaming, and what such a program itself
/// has read before our change and writes after it.
///
/// Everything but the entries changed stays as it is, in its order: the entries of others, keys that nobody
/// here knows, in entries and beside them. The file is always written in the binary format, which all that
/// read property lists understand, because users' lists grow: 100,000 entries take a tenth of the bytes, and
/// a twentieth of the time. Others may write it as XML; that is read as well.
///
/// A symbolic link in the file's place stays, and the file that it leads to is read and replaced, where it
/// lies, if it is the user's own. Root follows none: a user's link could lead it anywhere.
namespace shortcutkeys {

/// Up to which size the file is read.
inline constexpr std::uint64_t kLargestFile = 64ULL << 20;
inline constexpr std::size_t kMostValues = 4'000'000;

/// A key, by the Mac's virtual key code, and the mask of the modifiers that are held with it.
struct Combination {
  std::uint16_t keyCode = 0;
  std::uint16_t modifiers = 0;
  bool operator==(const Combination&) const = default;
  bool operator<(const Combination& other) const {
    return std::pair(keyCode, modifiers) < std::pair(other.keyCode, other.modifiers);
  }
};

/// What an entry of the file says, as far as it is understood here. Whatever has another kind than it should
/// is as good as missing.
struct Assignment {
  std::string bundleId;
  std::optional<std::string> commandId;
  /// nullopt where there is no key code, and where it or the modifiers are no whole number of 16 bits: nobody
  /// can tell which keys are meant. An entry without modifiers means the bare key.
  std::optional<Combination> keys;
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

  /// Those appended come last.
  [[nodiscard]] std::size_t size() const { return entries_.size() + appended_.size(); }
  /// nullopt for an entry that is no dictionary. REQUIRES an index below size(), as the functions below.
  [[nodiscard]] std::optional<Assignment> at(std::size_t index) const;
  [[nodiscard]] std::optional<Combination> keys(std::size_t index) const;
  [[nodiscard]] bool hasCommandId(std::size_t index, std::string_view commandId) const;
  /// The entry has parameters, and they are these, one by one. REQUIRES an entry that was not appended.
  [[nodiscard]] bool hasParams(std::size_t index, const std::vector<std::string>& params) const;

  // The indexes of the entries, in their order, of which something holds. Each is one look at all of them.
  [[nodiscard]] std::vector<std::size_t> entriesOf(std::string_view bundleId) const;
  /// Those that mean one of the combinations.
  [[nodiscard]] std::vector<std::size_t> holdersOf(const std::vector<Combination>& combinations) const;

  /// REQUIRES an entry that was not appended.
  void erase(std::size_t index);
  void append(foundation::PropertyList entry) { appended_.push_back(std::move(entry)); }

  /// The file's new content.
  [[nodiscard]] foundation::Result<std::string> serialize() const;

 private:
  using Object = foundation::BinaryPropertyList::Object;

  explicit WatchList(foundation::BinaryPropertyList file);
  [[nodiscard]] foundation::Result<void> findEntries();
  [[nodiscard]] const foundation::PropertyList* appendedAt(std::size_t index) const;
  /// What the values of the two keys mean.
  [[nodiscard]] std::optional<Combination> keysIn(std::optional<Object> keyCode,
                                                  std::optional<Object> modifiers) const;
  [[nodiscard]] std::optional<std::string> text(std::size_t index, const char* key) const;
  [[nodiscard]] bool hasText(std::size_t index, const char* key, std::string_view text) const;

  foundation::BinaryPropertyList file_;
  std::vector<Object> entries_;
  foundation::PropertyList::Array appended_;
};

/// One command of an application: its keys, and who else has them.
struct CommandKeys {
  std::optional<Combination> keys;
  /// In the list's order; another application once, whatever it does with the keys.
  std::vector<Assignment> otherHolders = {};
};
using KeysByCommand = std::map<std::string, CommandKeys>;

/// What a list says of the commands of one application. Of a command that stands there twice the last counts.
/// Entries without a command are only holders.
[[nodiscard]] KeysByCommand keysOf(const WatchList& list, std::string_view bundleId);

/// Where the file is; nullopt where nobody's Preferences folder is known.
[[nodiscard]] std::optional<std::string> assignmentsPath();

/// The file as it lies there now, to see whether it has changed since; nullopt where it is missing.
[[nodiscard]] std::optional<platform::FileState> assignmentsState();

/// What stands in the file now; ENOENT where it is missing.
[[nodiscard]] foundation::Result<WatchList> readAssignments();

enum class WhenMissing { leave, create };

/// Reads the file, has it changed and writes it, all under the lock, for which it waits five seconds by the
/// clock at most (half a second once the process was asked to end), and a tenth of a second where what is
/// there is no list, to see whether it is being written. On the main thread its work is served during these
/// waits, so that the window answers; whoever calls must be ready to be called again meanwhile. Answers the
/// file as it was written, whatever has become of it since; nullopt where it was not: what failed, or that
/// another program is in the way, is said on the system console.
///
/// The change may be asked for more than once, each time for a list that was read afresh, of which the last
/// one counts.
///
/// WhenMissing::create begins a new file where there is none, and where what is there is no list: that is
/// kept beside it as "NAME (unreadable DATE).plist", and nothing is written where it cannot be. With
/// WhenMissing::leave such a file stays where it is, and nothing is written. A file that cannot be read for
/// another reason is not touched.
std::optional<platform::FileState> changeAssignments(WhenMissing whenMissing,
                                                     const std::function<void(WatchList&)>& change);

}  // namespace shortcutkeys
