#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// One process at the moment when it was looked at: from proc(5), on a Mac from libproc.
struct ProcessInfo {
  pid_t pid = 0;
  pid_t parent = 0;
  pid_t processGroup = 0;
  pid_t session = 0;
  uid_t realUser = 0;
  std::uint64_t startTime = 0;  ///< clock ticks since boot, on a Mac microseconds
                                ///< since 1970; with `pid` it names a process for good
  char state = '?';  ///< as in /proc/PID/stat: 'R', 'S', 'T' (stopped), 'Z' (ended, not yet waited for)

  /// The program's path, byte for byte, without the " (deleted)" that the kernel adds to one that is gone.
  /// Empty for a kernel thread, an ended process, and where we have no right to see it.
  std::string executable;
  bool executableDeleted = false;
  dev_t executableDevice = 0;  ///< with `executableInode` the file that runs, whatever lies at the path now
  ino_t executableInode = 0;
};

/// The processes of this system. Processes that vanish while they are looked at are left out.
class ProcessTable {
 public:
  /// `procFolder` is where proc(5) is mounted; a Mac has none.
  explicit ProcessTable(std::string procFolder = "/proc") : procFolder_(std::move(procFolder)) {}

  /// All processes, in no particular order; empty where proc(5) cannot be read.
  [[nodiscard]] std::vector<ProcessInfo> processes() const;

  /// One process; nothing where it does not exist.
  [[nodiscard]] std::optional<ProcessInfo> process(pid_t pid) const;

  /// Whether "/" is to that process what it is to this one.
  [[nodiscard]] bool hasOurRoot(pid_t pid) const;

 private:
  std::string procFolder_;
};

/// A process held by a pidfd (pidfd_open(2)): a signal reaches that process or nobody, also after its number
/// has been given to another one. On a Mac by a kernel queue that tells of its end (kqueue(2), NOTE_EXIT),
/// which is asked before each signal: between the two its number could be given away.
class ProcessHandle {
 public:
  /// Opens the process that was seen. Once it is held the process is looked at again: another start
  /// time or program means that the number has changed hands, and gives ESRCH, as does a process that is
  /// gone.
  [[nodiscard]] static foundation::Result<ProcessHandle> open(const ProcessTable& table,
                                                              const ProcessInfo& seen);

  /// pidfd_send_signal(2), kill(2). ESRCH where it has ended, EPERM where we may not.
  [[nodiscard]] foundation::Result<void> signal(int number) const;

  /// Waits until it ends; true when it has, false when the time is over first. A signal that interrupts the
  /// wait does not shorten it.
  [[nodiscard]] bool waitForExit(std::chrono::milliseconds timeout) const;

  [[nodiscard]] const ProcessInfo& info() const { return info_; }
  /// The pidfd or queue, for poll(2): readable once the process has ended.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

 private:
  ProcessHandle(ProcessInfo info, UniqueDescriptor descriptor)
      : info_(std::move(info)), descriptor_(std::move(descriptor)) {}

  /// The pidfd or queue of the process that has the number now; empty on failure, and errno says why.
  [[nodiscard]] static UniqueDescriptor descriptorOf(pid_t pid);

  /// Whether one look at a number and a later one saw the same process and program. By the file that runs
  /// too, where the system tells which that is.
  [[nodiscard]] static bool isSame(const ProcessInfo& seen, const ProcessInfo& now);

  ProcessInfo info_;
  UniqueDescriptor descriptor_;
};

}  // namespace platform
