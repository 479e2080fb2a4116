#include <libproc.h>
#include <sys/event.h>
#include <sys/proc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "platform/posix/ProcessTable.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::size_t kRoomForNew = 64;  // processes that start between the two calls

/// As proc(5) names them.
char stateOf(std::uint32_t status) {
  switch (status) {
    case SSTOP:
      return 'T';
    case SZOMB:
      return 'Z';
    default:
      return 'R';
  }
}

/// What runs is not known by its file: what lies at the path now stands for it.
void readExecutable(ProcessInfo& info) {
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
  const int length = ::proc_pidpath(info.pid, path.data(), static_cast<std::uint32_t>(path.size()));
  if (length <= 0) return;
  info.executable.assign(path.data(), static_cast<std::size_t>(length));
  struct stat status {};
  info.executableDeleted = ::lstat(info.executable.c_str(), &status) != 0;
  if (info.executableDeleted) return;
  info.executableDevice = status.st_dev;
  info.executableInode = status.st_ino;
}

}  // namespace

std::optional<ProcessInfo> ProcessTable::process(pid_t pid) const {
  proc_bsdinfo raw{};
  constexpr int kSize = sizeof raw;
  if (::proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &raw, kSize) != kSize) return std::nullopt;
  ProcessInfo info;
  info.pid = pid;
  info.parent = static_cast<pid_t>(raw.pbi_ppid);
  info.processGroup = static_cast<pid_t>(raw.pbi_pgid);
  info.session = std::max(::getsid(pid), 0);
  info.realUser = raw.pbi_ruid;
  info.startTime = raw.pbi_start_tvsec * kSecond + raw.pbi_start_tvusec;
  info.state = stateOf(raw.pbi_status);
  readExecutable(info);
  return info;
}

std::vector<ProcessInfo> ProcessTable::processes() const {
  const int count = ::proc_listallpids(nullptr, 0);
  std::vector<pid_t> numbers(static_cast<std::size_t>(std::max(count, 0)) + kRoomForNew);
  const int filled = ::proc_listallpids(numbers.data(), static_cast<int>(numbers.size() * sizeof(pid_t)));
  numbers.resize(static_cast<std::size_t>(std::max(filled, 0)));
  std::vector<ProcessInfo> found;
  for (const pid_t pid : numbers) {
    if (pid <= 0) continue;
    if (std::optional<ProcessInfo> info = process(pid)) found.push_back(std::move(*info));
  }
  return found;
}

/// A program in another root folder does not run here.
bool ProcessTable::hasOurRoot(pid_t /*pid*/) const {
  return true;
}

UniqueDescriptor ProcessHandle::descriptorOf(pid_t pid) {
  UniqueDescriptor queue(::kqueue());
  struct kevent end {};
  end.ident = static_cast<std::uintptr_t>(pid);
  end.filter = EVFILT_PROC;
  end.flags = EV_ADD;
  end.fflags = NOTE_EXIT;
  if (!queue || ::kevent(queue.get(), &end, 1, nullptr, 0, nullptr) != 0) return {};
  return queue;
}

bool ProcessHandle::isSame(const ProcessInfo& seen, const ProcessInfo& now) {
  return now.startTime == seen.startTime && now.executable == seen.executable;
}

Result<void> ProcessHandle::signal(int number) const {
  if (waitForExit(std::chrono::milliseconds(0))) return systemError(ESRCH, info_.executable);
  if (::kill(info_.pid, number) != 0) return systemError(errno, info_.executable);
  return {};
}

}  // namespace platform
