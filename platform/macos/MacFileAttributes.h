#pragma once

#include "platform/FileAttributes.h"

namespace platform {

/// Locks are the flags of chflags(2): an item is immutable where its user or the system has set it so; the
/// user's flag is what is set and taken away (the system's only while it runs for one user). The Finder
/// information is the extended attribute "com.apple.FinderInfo", by which a Mac's file systems present what
/// they keep of it.
///
/// Changes by root hold on to the item that they have looked at, and follow no link on the way to it that
/// anybody but root can have put there (GuardedFolders.h). Others change a path's item as the system does.
class MacFileAttributes : public FileAttributes {
 public:
  bool isSymbolicLink(const std::string& path) override;
  bool isLedAstray(const std::string& path) override;
  bool isImmutable(const std::string& path) override;
  foundation::Result<void> setImmutable(const std::string& path, Immutable immutable) override;
  foundation::Result<FinderInformation> finderInformation(const std::string& path) override;
  foundation::Result<void> setFinderInformation(const std::string& path,
                                                const FinderInformation& information) override;
};

}  // namespace platform
