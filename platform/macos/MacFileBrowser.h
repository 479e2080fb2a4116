#pragma once

#include "platform/FileBrowser.h"

namespace platform {

/// The Finder, by an Apple event of class 'fndr' and identifier 'fupd' to the application of signature
/// 'MACS', whose direct object is the item's address ('furl'). No reply is asked for.
class MacFileBrowser : public FileBrowser {
 public:
  OSStatus itemChanged(const std::string& path) override;
};

}  // namespace platform
