#pragma once

#include <string>

#include "platform/foundation/Result.h"

/// Removing by descriptors, at any depth: no link is followed. What cannot be removed is passed over; the
/// first failure is the answer. EBUSY where a folder is moved elsewhere meanwhile: then what is left stays.
namespace platform {

/// Removes an item and all below it.
foundation::Result<void> removeItem(int folder, const std::string& name);

/// Removes all that is in an open folder that this process has filled: what is locked and folders that may
/// not be written too. `path` is for the error.
foundation::Result<void> removeOwnContents(int folder, const std::string& path);

}  // namespace platform
