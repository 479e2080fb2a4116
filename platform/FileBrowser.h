#pragma once

#include <string>

#include "platform/OSStatus.h"

namespace platform {

/// The desktop's file browser: the Finder on a Mac.
class FileBrowser {
 public:
  virtual ~FileBrowser() = default;

  /// Asks it to show an item afresh, and does not wait for it: the Finder event 'fndr'/'fupd'. A link in the
  /// last component is the item. noErr says that the request was made, not that anybody heard it.
  virtual OSStatus itemChanged(const std::string& path) = 0;
};

}  // namespace platform
