#pragma once

#include <string>

#include "platform/foundation/Result.h"

namespace platform {

/// Copies an item to a path where nothing is, as FileChanges::copy. The copy is made in a folder beside its
/// destination that nobody else can enter, and appears under its name when it is whole.
foundation::Result<void> copyToPath(const std::string& from, const std::string& to);

}  // namespace platform
