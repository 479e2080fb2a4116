#include "tests/macsdk/fakes/FakeProcesses.h"

#include <crt_externs.h>
#include <libproc.h>
#include <sys/event.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {

/// The writing end of a queue that waits for nobody yet.
std::map<int, int> freeQueues;

template <typename Item>
int copied(const std::vector<Item>& items, void* buffer, int size) {
  const auto room = static_cast<std::size_t>(size) / sizeof(Item);
  const std::size_t count = std::min(room, items.size());
  std::memcpy(buffer, items.data(), count * sizeof(Item));
  return static_cast<int>(count);
}

int describe(pid_t process, void* buffer, int size) {
  const auto found = fakes::processes().processes.find(process);
  if (found == fakes::processes().processes.end() || size < static_cast<int>(sizeof(proc_bsdinfo))) return 0;
  const fakes::FakeProcess& known = found->second;
  proc_bsdinfo information{};
  information.pbi_pid = static_cast<std::uint32_t>(process);
  information.pbi_ppid = static_cast<std::uint32_t>(known.parent);
  information.pbi_pgid = static_cast<std::uint32_t>(known.group);
  information.pbi_uid = 501;
  information.pbi_ruid = known.user;
  information.pbi_status = known.status;
  information.pbi_start_tvsec = known.seconds;
  information.pbi_start_tvusec = known.microseconds;
  std::memcpy(buffer, &information, sizeof information);
  return static_cast<int>(sizeof information);
}

int listDescriptors(void* buffer, int size) {
  std::vector<proc_fdinfo> open;
  for (const std::int32_t each : fakes::processes().openDescriptors) open.push_back({each, 1});
  const int needed = static_cast<int>(open.size() * sizeof(proc_fdinfo));
  if (buffer == nullptr) return needed;
  return copied(open, buffer, size) * static_cast<int>(sizeof(proc_fdinfo));
}

}  // namespace

namespace fakes {

ProcessesState& processes() {
  static ProcessesState only;
  return only;
}

void endProcess(pid_t process) {
  processes().processes.erase(process);
  for (const int end : processes().queues[process]) ::close(end);
  processes().queues.erase(process);
}

}  // namespace fakes

extern "C" {

int proc_listallpids(void* buffer, int size) {
  std::vector<pid_t> numbers;
  for (const auto& [number, process] : fakes::processes().processes) numbers.push_back(number);
  return buffer == nullptr ? static_cast<int>(numbers.size()) : copied(numbers, buffer, size);
}

int proc_pidinfo(int process, int flavor, uint64_t, void* buffer, int size) {
  return flavor == PROC_PIDLISTFDS ? listDescriptors(buffer, size) : describe(process, buffer, size);
}

int proc_pidpath(int process, void* buffer, uint32_t size) {
  const auto found = fakes::processes().processes.find(process);
  if (found == fakes::processes().processes.end() || found->second.path.size() >= size) return 0;
  std::memcpy(buffer, found->second.path.c_str(), found->second.path.size() + 1);
  return static_cast<int>(found->second.path.size());
}

int kqueue(void) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) return -1;
  freeQueues[ends[0]] = ends[1];
  return ends[0];
}

int kevent(int queue, const struct kevent* changes, int count, struct kevent*, int, const struct timespec*) {
  const auto process = static_cast<pid_t>(changes->ident);
  const bool isForEnd = count == 1 && changes->filter == EVFILT_PROC && changes->flags == EV_ADD &&
                        changes->fflags == NOTE_EXIT;
  if (!isForEnd || !fakes::processes().processes.contains(process)) {
    errno = isForEnd ? ESRCH : EINVAL;
    return -1;
  }
  fakes::processes().queues[process].push_back(freeQueues.at(queue));
  if (fakes::processes().whenQueued) fakes::processes().whenQueued();
  return 0;
}

char*** _NSGetEnviron(void) {
  return &environ;
}

}  // extern "C"
