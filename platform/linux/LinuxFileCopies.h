#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/foundation/Result.h"

namespace platform {

/// How far a copy has come: bytes of content and objects (files, folders, links) that are done, and the item
/// under way, by its path.
struct CopiedSoFar {
  std::uint64_t bytes = 0;
  std::uint64_t objects = 0;
  std::string item;
};

/// Hears of a copy's progress at least ten times a second; false stops it (ECANCELED).
using CopyObserver = std::function<bool(const CopiedSoFar&)>;

/// Copies an item to a path where nothing is, as FileChanges::copy. The copy is made in a folder beside its
/// destination that nobody else can enter, and appears under its name when it is whole.
foundation::Result<void> copyToPath(const std::string& from, const std::string& to,
                                    const CopyObserver& observer = nullptr);

}  // namespace platform
