#pragma once

#include <deque>
#include <map>
#include <mutex>

#include "platform/FileReferences.h"
#include "platform/FolderQueries.h"

namespace platform {

/// A reference holds the item's file handle (name_to_handle_at(2)) with its mount, and its device, inode and
/// time of birth. For a process that may open by handle (CAP_DAC_READ_SEARCH: root) it survives renames to
/// anywhere on the volume. Others, and file systems without handles, find the item where this process last
/// knew it, or under a new name in the same folder; moved elsewhere it is not found. This is known for the
/// last 4096 items referred to. An item that has been removed is never mistaken for one that has got its
/// inode since.
class LinuxFileReferences : public FileReferences {
 public:
  foundation::Result<FSRef> reference(const std::string& path) override;
  foundation::Result<std::string> path(const FSRef& reference) override;

 private:
  void remember(const ItemIdentity& item, const std::string& path);
  [[nodiscard]] std::string lastKnownPath(const ItemIdentity& item);

  std::mutex mutex_;
  std::map<ItemIdentity, std::string> paths_;
  std::deque<ItemIdentity> order_;  ///< of the paths, oldest first
};

}  // namespace platform
