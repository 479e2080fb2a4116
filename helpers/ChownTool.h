#pragma once

#include <string>
#include <vector>

#include "helpers/TreeWalk.h"
#include "platform/posix/OwnerName.h"

namespace helpers {

using platform::Ownership;
using platform::ownershipNamed;

/// chowntool -R owner path: gives path and everything below it to owner.
///
/// Symbolic links are given away themselves, never followed. An entry that has the owner and group already is
/// not touched. The kernel takes the set-ID bits of a file away when its owner or group changes; they are not
/// put back, because a program is not to run with rights that its former owner chose. Files with further hard
/// links: see LinkedFiles.
class ChownTool {
 public:
  ChownTool(const Surroundings& surroundings, Report& report)
      : surroundings_(surroundings), report_(report) {}

  /// `arguments` without the tool's name.
  [[nodiscard]] ExitStatus run(const std::vector<std::string>& arguments);

  void onListed(TreeWalk::Listed listed) { listed_ = std::move(listed); }

 private:
  void changeTree(const PathEntry& top, const Ownership& ownership);
  void change(int descriptor, const std::string& path, const Ownership& ownership);

  const Surroundings& surroundings_;
  Report& report_;
  TreeWalk::Listed listed_;
};

}  // namespace helpers
