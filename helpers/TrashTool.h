#pragma once

#include <string>
#include <vector>

#include "helpers/SpoolFolder.h"
#include "helpers/TrashCan.h"

namespace helpers {

/// trashtool path: moves the file or folder to the trash; a symbolic link is moved itself.
/// trashtool -dircontents path: moves every entry of the folder to the trash, each under its own name.
/// trashtool -spooldir path: moves the contents to the trash as one dated folder (SpoolFolder).
///
/// Which trash, and which names: TrashCan and TrashName. What is moved keeps owner, mode and times. Nothing
/// is ever deleted that is not in a trash. A path that does not exist is done already. A trash itself is
/// refused.
class TrashTool {
 public:
  TrashTool(const Surroundings& surroundings, Report& report)
      : surroundings_(surroundings), report_(report) {}

  /// `arguments` without the tool's name.
  [[nodiscard]] ExitStatus run(const std::vector<std::string>& arguments);

 private:
  [[nodiscard]] ExitStatus trashItem(const std::string& path);
  [[nodiscard]] ExitStatus trashContents(const std::string& path);
  void trashEntries(const PathEntry& folder, platform::NameList& names);

  const Surroundings& surroundings_;
  Report& report_;
};

}  // namespace helpers
