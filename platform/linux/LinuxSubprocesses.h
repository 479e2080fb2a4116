#pragma once

#include <string>
#include <utility>

#include "platform/MainBundle.h"
#include "platform/posix/PosixSubprocesses.h"

namespace platform {

/// Children as POSIX has them, each watched by a pidfd (pidfd_open(2)).
///
/// The Mac's tools that this system may lack are taken from the bundle's Contents/SharedSupport then. A
/// /usr/bin/open that is a symbolic link leads to some desktop's opener, which is another program: it counts
/// as lacking. So does every /usr/sbin/chown: the general one follows links that a user has planted; for
/// root, who works in folders that users control, /bin/cp, /bin/mv, /bin/rm and /bin/mkdir as well.
class LinuxSubprocesses : public PosixSubprocesses {
 public:
  /// Both outlive this object and every child that it makes. `root` is the folder below which the system's
  /// own form of the Mac's tools is looked for; "" is the system's.
  LinuxSubprocesses(MainThread& mainThread, MainBundle& mainBundle, std::string root = "");

 protected:
  /// The path, or the equivalent in the bundle's Contents/SharedSupport.
  std::string executableFor(const std::string& path) override;
  OpensOnDesktop opensOnDesktop(const std::string& executable) override;

 private:
  MainBundle& mainBundle_;
  std::string root_;
};

}  // namespace platform
