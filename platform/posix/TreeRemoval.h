#pragma once

#include <functional>
#include <string>

#include "platform/foundation/Result.h"

/// Removing by descriptors, at any depth: no link is followed. What cannot be removed is passed over; the
/// first failure is the answer. EBUSY where a folder is moved elsewhere meanwhile: then what is left stays.
/// Few folders are held open, fewer where few descriptors can be had; memory is used for the names of a
/// folder, and of those above it, that are still to be removed.
namespace platform {

enum class MountedItems {
  enter,
  leave  ///< what is mounted in a tree stays as it is: EXDEV
};

struct RemovalOptions {
  MountedItems mounted = MountedItems::enter;
  std::function<bool()> goesOn = {};  ///< asked before each entry; ECANCELED when it says no
};

/// Removes an item and all below it.
foundation::Result<void> removeItem(int folder, const std::string& name, RemovalOptions options = {});

/// Removes all that is in an open folder that this process has filled: what is locked and folders that may
/// not be written too. `path` is for the error.
foundation::Result<void> removeOwnContents(int folder, const std::string& path);

}  // namespace platform
