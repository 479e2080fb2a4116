#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/OSStatus.h"

/// The File Manager's operations for tests on other systems: they really copy, when their run loop is served.
namespace fakes {

/// Set before an operation begins, and read when it has ended.
struct FileOperationsState {
  std::map<std::string, platform::OSStatus> statuses;  ///< by the name of the function; 0 for the others
  std::vector<std::string> calls;
  platform::OSStatus outcome = platform::noErr;  ///< what a copy ends with, after a part of it was made
  bool runsUntilCancelled = false;
  bool isWithoutSourcesAtFirst = false;  ///< the run loop serves nothing the first time
  bool locks = false;                    ///< what is copied arrives locked, whole or not
};

FileOperationsState& fileOperations();

/// The items that cannot be renamed or removed, as locked ones on a Mac (by inode).
std::set<ino_t>& lockedItems();

}  // namespace fakes
