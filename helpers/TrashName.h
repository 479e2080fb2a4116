#pragma once

#include <string>
#include <string_view>

#include "platform/foundation/Date.h"

namespace helpers {

/// The names to try, one after the other, for something that goes into the trash.
///
/// An item keeps its name. Where that is taken it gets the moment in local time: "a.txt" becomes
/// "a_20240131235959.txt", then "a_20240131235959_2.txt" and so on; a name without extension gets none.
/// A folder's contents as a whole get the folder's name and the moment: "qmaster 2024-01-31 23.59.59", then
/// "qmaster 2024-01-31 23.59.59 2" and so on.
/// Where a name would be too long its front part is cut, between characters where it is UTF-8.
class TrashName {
 public:
  [[nodiscard]] static TrashName ofItem(const std::string& name, const foundation::Date& now);
  [[nodiscard]] static TrashName ofContents(const std::string& folderName, const foundation::Date& now);

  /// The name for that attempt, from 0, of at most that many bytes.
  [[nodiscard]] std::string candidate(unsigned attempt, std::size_t mostBytes) const;

 private:
  TrashName() = default;

  std::string name_;       ///< for attempt 0
  std::string stem_;       ///< what may be cut
  std::string stamp_;      ///< follows the stem
  std::string separator_;  ///< between the stamp and the number of the attempt
  std::string extension_;  ///< with its point, or empty
};

}  // namespace helpers
