#pragma once

#include <cstddef>
#include <string>

#include "platform/MainThread.h"
#include "platform/Subprocesses.h"
#include "platform/posix/ChildEnvironment.h"
#include "platform/posix/RunningChild.h"

namespace platform {

/// Children by posix_spawn(3), for any system; how one is seen to its end is each system's own (WatchChild).
///
/// Pipes hold 1 MiB where the system allows it, so that a tool that writes much to the stream that is read
/// last does not get stuck. From one that holds less, as much is read ahead while anybody waits for the child
/// or its output. A pipe at standard input is at its end from the start: nothing is ever written to it. A
/// standard stream that is closed in this process is the null device in the child, so that no file the child
/// opens is taken for one. What childEnvironment() says becomes its environment.
///
/// terminationStatus() of a child whose status somebody else took is -1, and it throws foundation::Exception
/// (NSInvalidArgumentException) for one that has not ended. Arguments with a zero byte in them cannot be
/// passed; launch() refuses them rather than cut them.
class PosixSubprocesses : public Subprocesses {
 public:
  /// Has a pipe hold that many bytes; answers whether it does.
  using MakePipeHold = bool(int pipe, std::size_t bytes);
  /// Has new memory for much output come in large pages, which are made many times as fast as small ones.
  using UseLargePages = void(char* memory, std::size_t bytes);

  /// What a system has beyond POSIX; nothing where it has none.
  struct Extras {
    MakePipeHold* makePipeHold = nullptr;
    UseLargePages* useLargePages = nullptr;
  };

  /// `mainThread` outlives this object and every child that it makes. Without `makePipeHold` pipes
  /// hold what they hold.
  PosixSubprocesses(MainThread& mainThread, WatchChild* watch, Extras extras)
      : mainThread_(mainThread), watch_(watch), extras_(extras) {}

  std::shared_ptr<Subprocess> create(SubprocessOptions options) override;
  bool isExecutableFile(const std::string& path) override;

 protected:
  /// What is run for a path.
  [[nodiscard]] virtual std::string executableFor(const std::string& path) { return path; }

  [[nodiscard]] virtual OpensOnDesktop opensOnDesktop(const std::string& /*executable*/) {
    return OpensOnDesktop::no;
  }

  /// A regular file, or a folder that may be searched.
  [[nodiscard]] static bool mayBeExecuted(const std::string& path);

 private:
  MainThread& mainThread_;
  WatchChild* watch_;
  Extras extras_;
};

}  // namespace platform
