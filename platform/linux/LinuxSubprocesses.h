#pragma once

#include <string>
#include <utility>

#include "platform/MainBundle.h"
#include "platform/MainThread.h"
#include "platform/Subprocesses.h"

namespace platform {

/// Children by posix_spawn(3), watched by pidfd_open(2).
///
/// Pipes hold 1 MiB where the system allows it, so that a tool that writes much to the stream that is read
/// last does not get stuck. A pipe at standard input is at its end from the start: nothing is ever written to
/// it. A standard stream that is closed in this process is the null device in the child, so that no file the
/// child opens is taken for one. What childEnvironment() says becomes its environment.
///
/// terminationStatus() of a child whose status somebody else took is -1, and it throws foundation::Exception
/// (NSInvalidArgumentException) for one that has not ended.
///
/// The Mac's tools that this system may lack are taken from the bundle's Contents/SharedSupport then. A
/// /usr/bin/open that is a symbolic link leads to some desktop's opener, which is another program: it counts
/// as lacking. So does every /usr/sbin/chown: the general one follows links that a user has planted.
///
/// Arguments with a zero byte in them cannot be passed; launch() refuses them rather than cut them.
class LinuxSubprocesses : public Subprocesses {
 public:
  /// Both outlive this object and every child that it makes. `root` is the folder below which the system's
  /// own form of the Mac's tools is looked for; "" is the system's.
  LinuxSubprocesses(MainThread& mainThread, MainBundle& mainBundle, std::string root = "")
      : mainThread_(mainThread), mainBundle_(mainBundle), root_(std::move(root)) {}

  std::shared_ptr<Subprocess> create(SubprocessOptions options) override;
  bool isExecutableFile(const std::string& path) override;

 private:
  /// What is run for a path: the path, or the equivalent in the bundle's Contents/SharedSupport.
  [[nodiscard]] std::string executableFor(const std::string& path);

  MainThread& mainThread_;
  MainBundle& mainBundle_;
  std::string root_;
};

}  // namespace platform
