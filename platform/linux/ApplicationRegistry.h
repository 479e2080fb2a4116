#pragma once

#include <string>

#include "platform/foundation/Result.h"

namespace platform {

/// Adds an application bundle to the registry that applicationPaths (ApplicationBundles.h) reads: root to the
/// computer's, others to their own. The folder for it is made if missing. EINVAL for what is no bundle with
/// an identifier, ENOTSUP for a path that is not valid UTF-8, ENOSPC when the registry is full of bundles
/// that are still there; entries of bundles that are gone are then dropped, and otherwise kept: their volume
/// may only not be mounted.
///
/// Registrations at the same time wait for each other (5 seconds at most, then EBUSY); readers see the old
/// registry or the new one. A registry that root may not trust is replaced by one of root's own.
foundation::Result<void> registerApplicationBundle(const std::string& root, const std::string& path);

}  // namespace platform
