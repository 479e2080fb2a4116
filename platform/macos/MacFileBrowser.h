#pragma once

#include "platform/FileBrowser.h"

namespace platform {

/// The Finder, by an Apple event of class 'fndr' and identifier 'fupd' to the application of signature
/// 'MACS', whose direct object is a minimal alias of the item ('alis'); its address ('furl') on a system
/// that makes no aliases any more. No reply is asked for. The status of what fails is answered.
class MacFileBrowser : public FileBrowser {
 public:
  OSStatus itemChanged(const std::string& path) override;
};

}  // namespace platform
