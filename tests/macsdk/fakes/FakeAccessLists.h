#pragma once

#include <sys/acl.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace fakes {

using AccessEntries = std::vector<acl_tag_t>;

struct AccessListsState {
  std::map<std::pair<dev_t, ino_t>, AccessEntries> lists;
  AccessEntries inherited;  ///< what every item has that has no list of its own
  int failure = 0;          ///< errno of every look at a list
  bool canBeTakenAway = true;
};
AccessListsState& accessLists();

/// Gives an item a list of its own.
void giveAccessList(const std::string& path, AccessEntries entries);

}  // namespace fakes
