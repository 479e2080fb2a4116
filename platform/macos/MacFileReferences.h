#pragma once

#include "platform/FileReferences.h"

namespace platform {

/// A reference holds the item's volume (its numbers of statfs(2)), file number and time of birth; the volume
/// finds the item by its number wherever it is now: fsgetpath(2). Volumes without lasting file numbers find
/// nothing. An item that has got the number of a removed one is told apart by its birth.
class MacFileReferences : public FileReferences {
 public:
  foundation::Result<FSRef> reference(const std::string& path) override;
  foundation::Result<std::string> path(const FSRef& reference) override;
};

}  // namespace platform
