#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// The Mac's lists of processes and descriptors, and its kernel queues as far as they tell of a process's
/// end, for tests on other systems.
namespace fakes {

struct FakeProcess {
  pid_t parent = 1;
  pid_t group = 0;
  uid_t user = 0;
  std::uint32_t status = 2;  ///< running
  std::uint64_t seconds = 0;
  std::uint64_t microseconds = 0;
  std::string path;
};

struct ProcessesState {
  std::map<pid_t, FakeProcess> processes;
  std::function<void()> whenQueued;  ///< called when a queue has been told of a process
  std::vector<std::int32_t> openDescriptors;
  std::map<pid_t, std::vector<int>> queues;  ///< writing ends, by whom they wait for
};

ProcessesState& processes();

/// The process ends; its queues tell.
void endProcess(pid_t process);

}  // namespace fakes
