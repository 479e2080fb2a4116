#pragma once

#include "platform/FileAttributes.h"

namespace platform {

/// The immutable attribute is the inode flag of chattr(1) (FS_IMMUTABLE_FL of ioctl_iflags(2)): setting it
/// takes the rights of root (CAP_LINUX_IMMUTABLE), and only files and folders have it. It is read by
/// statx(2), which opens nothing; a file is opened only to change it.
///
/// The Finder information is an extended attribute: "osx.com.apple.FinderInfo" on HFS+, elsewhere
/// "user.com.apple.FinderInfo", which only files and folders can have. An item without the attribute has all
/// zeros, and all zeros are stored by removing it.
///
/// Changes by root hold on to the item that they have looked at, and follow no link on the way to it that
/// anybody but root can have put there (GuardedFolders.h).
class LinuxFileAttributes : public FileAttributes {
 public:
  bool isSymbolicLink(const std::string& path) override;
  bool isImmutable(const std::string& path) override;
  foundation::Result<void> setImmutable(const std::string& path, Immutable immutable) override;
  foundation::Result<FinderInformation> finderInformation(const std::string& path) override;
  foundation::Result<void> setFinderInformation(const std::string& path,
                                                const FinderInformation& information) override;
};

}  // namespace platform
