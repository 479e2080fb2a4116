#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/MainThread.h"
#include "platform/Subprocesses.h"
#include "platform/foundation/Result.h"

namespace platform {

/// What a child is started with. The streams are descriptors of this process; -1 stands for the null device.
struct ChildToStart {
  std::string executable;
  std::vector<std::string> command;  ///< the program's name, then its arguments; no zero bytes
  int standardInput = -1;
  int standardOutput = -1;
  int standardError = -1;
};

/// Starts a direct child in a session of its own, with no descriptor but its three streams, no signal ignored
/// and none blocked, and with the environment that childEnvironment() says. How descriptors are kept from a
/// child is each system's own.
using StartChild = foundation::Result<pid_t>(const ChildToStart& child);

/// Children for any system: a thread waits for each of them (waitid(2), waitpid(2)), so that none is left
/// behind when it has ended, and nobody signals a process that has got its number since.
///
/// A pipe at standard input is at its end from the start: nothing is ever written to it. A standard stream
/// that is closed in this process is the null device in the child. terminationStatus() of a child whose
/// status somebody else took is -1, and it throws foundation::Exception (NSInvalidArgumentException) for one
/// that has not ended. Arguments with a zero byte in them cannot be passed; launch() refuses them rather than
/// cut them.
class PosixSubprocesses : public Subprocesses {
 public:
  /// `mainThread` outlives this object and every child that it makes.
  PosixSubprocesses(MainThread& mainThread, StartChild* start) : mainThread_(mainThread), start_(start) {}

  std::shared_ptr<Subprocess> create(SubprocessOptions options) override;
  bool isExecutableFile(const std::string& path) override;

 private:
  MainThread& mainThread_;
  StartChild* start_;
};

}  // namespace platform
