#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// Runs a program, where wanted so that each of its system calls is told before the kernel makes it: the
/// moment at which somebody else could have changed the world, a disk could have been full, or the power
/// could have gone.
namespace hardening {

/// A system call that is about to be made. Told are those that look at files or change anything, from when a
/// helper has prepared its process (its close_range(2)), a program first looks at a file (statx(2)), or a
/// test's own program marks a part of its run (getppid(2)), on. What only a process itself can see (memory,
/// signals, its own descriptors) is not, because nobody outside can tell whether it has been made; nor is a
/// newfstatat(2) that follows links, by which the helpers look at the system's own folders and fstat(3) at
/// what is open.
struct Call {
  pid_t process = 0;
  int number = 0;  ///< SYS_...
  int index = 0;   ///< of those told, from 1 on
};

inline constexpr int kProceed = 0;
inline constexpr int kKill = -1;
/// Whether a call is led by names. What takes descriptors alone cannot be led elsewhere, and what is
/// exchanged before it the next call meets.
[[nodiscard]] bool resolvesNames(int call);

/// Answers kProceed, kKill (SIGKILL; the call is not made), or an errno value that the call fails with.
using OnCall = std::function<int(const Call&)>;

struct Finished {
  int exitStatus = -1;  ///< -1 where a signal ended it
  int signal = 0;
  int calls = 0;  ///< that were told
  std::string errors;
};

/// Whether a call can fail at all.
[[nodiscard]] bool mayFail(int call);

/// Whether a call changes something, for most of which a disk needs room.
[[nodiscard]] bool changes(int call);

/// The text of a descriptor's file of /proc, for example "VmHWM:	 1234 kB" in "status".
[[nodiscard]] std::string processFile(pid_t process, const std::string& name);

/// `command` begins with the program's path. `inChild` prepares the process that becomes it. Needs root for
/// `onCall`. Where `only` names calls, no others are told, which costs the program nothing; one of those
/// three must be among them. What a sanitizer has found in a program is a failure of the test.
[[nodiscard]] Finished run(std::vector<std::string> command, const std::function<void()>& inChild = nullptr,
                           const OnCall& onCall = nullptr, const std::vector<unsigned>& only = {});

/// Has each of a run's calls that concern somebody fail in turn, for one `attempt` each, until a test fails.
/// Answers how many there were.
[[nodiscard]] int failEach(const std::vector<int>& calls, bool (*concerns)(int call), int reason,
                           const std::function<void(const OnCall&)>& attempt);

}  // namespace hardening
