#pragma once

#include <string>
#include <vector>

#include "helpers/FileMode.h"
#include "helpers/TreeWalk.h"

namespace helpers {

/// chmodtool [-R] mode path: changes the permissions of path, with -R of everything below it too.
///
/// Symbolic links have no permissions of their own: below path they are passed over, and as the path itself
/// one is reported. An entry that has the mode already is not touched. No set-ID bit is added unless the mode
/// asks for it ("u+s", "4755"). With -R a file that carries a set-ID bit is not made writable for group or
/// others: that part is left out, and reported. Files with further hard links: see LinkedFiles.
class ChmodTool {
 public:
  ChmodTool(const Surroundings& surroundings, Report& report)
      : surroundings_(surroundings), report_(report) {}

  /// `arguments` without the tool's name.
  [[nodiscard]] ExitStatus run(const std::vector<std::string>& arguments);

  void onListed(TreeWalk::Listed listed) { listed_ = std::move(listed); }

 private:
  void changeTree(const PathEntry& top, const FileMode& mode);
  void changeOne(const PathEntry& entry, const FileMode& mode);
  void change(int descriptor, const std::string& path, mode_t permissions);
  [[nodiscard]] mode_t wanted(const FileStatus& status, const std::string& path, const FileMode& mode);

  const Surroundings& surroundings_;
  Report& report_;
  TreeWalk::Listed listed_;
};

}  // namespace helpers
