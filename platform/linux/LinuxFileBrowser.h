#pragma once

#include "platform/FileBrowser.h"

namespace platform {

/// File browsers watch the folders that they show by inotify(7). The item's own times are set to what they
/// are: whoever watches it or the folder it lies in gets IN_ATTRIB and looks at it again. Nothing changes but
/// the time of its last status change. Only the item's owner and root may do that; permErr for others.
class LinuxFileBrowser : public FileBrowser {
 public:
  OSStatus itemChanged(const std::string& path) override;
};

}  // namespace platform
