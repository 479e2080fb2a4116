#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>
#include <vector>

namespace helpers {

/// A mode as chmod(1) takes it.
/// - Octal, one to four digits ("755", "0644", "4755"): exactly those bits, except that a folder keeps set-ID
///   bits that are not asked for, since they mean inheritance there.
/// - Symbolic: clauses joined by commas, each of who ("u", "g", "o", "a", in any number), then one or more
///   actions: "+", "-" or "=" and permissions out of "rwxXst", or one of "u", "g", "o" to copy. "X" is "x"
///   for folders and for files that somebody may execute. Without who, "a" is meant, less what the mask 022
///   takes away; the mask of the process plays no part.
class FileMode {
 public:
  /// Nothing where the text is no mode.
  [[nodiscard]] static std::optional<FileMode> parse(std::string_view text);

  /// The twelve permission bits that a file with `current` ones gets.
  [[nodiscard]] mode_t appliedTo(mode_t current, bool isFolder) const;

 private:
  enum class Copy { none, user, group, others };
  struct Change {
    char action = '=';
    mode_t affected = 0;  ///< the bits of those named by who; 0 where nobody is named
    mode_t bits = 0;
    mode_t mentioned = 0;  ///< set-ID bits outside these stay as they are on a folder
    bool conditionalExecute = false;
    Copy copy = Copy::none;
  };

  [[nodiscard]] static std::optional<FileMode> parseOctal(std::string_view text);
  [[nodiscard]] static bool parseClause(std::string_view clause, FileMode& mode);
  [[nodiscard]] static bool parsePermissions(std::string_view& clause, Change& change);
  [[nodiscard]] static mode_t requestedBits(const Change& change, mode_t current, bool isFolder);
  [[nodiscard]] static mode_t applyChange(const Change& change, mode_t current, bool isFolder);

  std::vector<Change> changes_;
};

}  // namespace helpers
