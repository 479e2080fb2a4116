#include "helpers/KillTool.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

namespace helpers {
namespace {

using platform::ProcessHandle;
using platform::ProcessInfo;
using platform::ProcessTable;
using std::chrono::milliseconds;
using Deadline = std::chrono::steady_clock::time_point;

constexpr milliseconds kBetweenLooksForStop{100};

milliseconds until(Deadline deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
  return std::max(left, milliseconds(0));
}

/// This process and all that it descends from: whoever started a repair must see its end.
std::set<pid_t> ourLine(const ProcessTable& table) {
  std::set<pid_t> line = {0, 1};
  for (pid_t pid = getpid(); line.insert(pid).second;) {
    const auto process = table.process(pid);
    if (!process) break;
    pid = process->parent;
  }
  return line;
}

/// In slices, so that a request to stop is heard.
bool waitForExit(const ProcessHandle& process, Deadline deadline) {
  while (true) {
    const milliseconds left = until(deadline);
    if (process.waitForExit(std::min(left, kBetweenLooksForStop))) return true;
    if (left.count() == 0 || stopRequested()) return false;
  }
}

}  // namespace

ExitStatus KillTool::run(const std::vector<std::string>& arguments) {
  if (!arguments.empty()) return report_.stop(ExitStatus::usage, "usage: killtool (it takes no arguments)");
  if (const auto self = table_.process(getpid())) ownStart_ = self->startTime;
  int slowness = 1;
  for (int round = 0; round < settings_.rounds && !stopRequested(); ++round, slowness = 4) {
    const std::vector<Target> targets = findTargets();
    if (targets.empty()) return report_.status();
    stopTargets(targets, slowness);
  }
  for (const Target& target : findTargets()) {
    report_.failure(target.handle.info().executable, "still running");
  }
  return report_.status();
}

KillTool::Processes KillTool::look() const {
  Processes seen;
  for (ProcessInfo& process : table_.processes()) seen.emplace(process.pid, std::move(process));
  return seen;
}

/// A number that another process bears by now is not the family's any more.
bool KillTool::isOfFamily(pid_t pid, const Processes& seen) const {
  const auto known = family_.find(pid);
  if (known == family_.end()) return false;
  const auto now = seen.find(pid);
  return now == seen.end() || now->second.startTime == known->second;
}

/// The parent of a process whose parent has ended is somebody else; its group and session tell still.
bool KillTool::descendsFromTarget(const ProcessInfo& process, const Processes& seen) const {
  const std::array<pid_t, 3> ancestors = {process.parent, process.processGroup, process.session};
  return std::any_of(ancestors.begin(), ancestors.end(),
                     [&](pid_t pid) { return pid != process.pid && isOfFamily(pid, seen); });
}

void KillTool::noteDescendants(const Processes& seen) {
  for (bool grown = true; grown;) {
    grown = false;
    for (const auto& [pid, process] : seen) {
      if (isOfFamily(pid, seen) || !descendsFromTarget(process, seen)) continue;
      family_[pid] = process.startTime;
      grown = true;
    }
  }
}

std::vector<KillTool::Target> KillTool::findTargets() {
  const std::set<pid_t> spared = ourLine(table_);
  const Processes seen = look();
  noteDescendants(seen);
  std::vector<Target> targets;
  for (const auto& [pid, process] : seen) {
    const auto role = roleOf(process);
    if (!role || spared.contains(pid)) continue;
    if (!firstRound_ && process.startTime >= ownStart_ && !isOfFamily(pid, seen)) continue;
    auto handle = ProcessHandle::open(table_, process);
    if (handle) {
      targets.push_back({*role, std::move(handle).value()});
    } else if (handle.error().code != ESRCH) {
      report_.failure(handle.error());
    }
  }
  for (const Target& target : targets) family_[target.handle.info().pid] = target.handle.info().startTime;
  firstRound_ = false;
  return targets;
}

std::optional<QmasterRole> KillTool::roleOf(const ProcessInfo& process) const {
  std::string_view path = process.executable;
  if (process.state == 'Z' || !path.starts_with(settings_.rootFolder)) return std::nullopt;
  path.remove_prefix(settings_.rootFolder.size());
  const auto role = qmasterRole(path);
  return role && isSeenByUs(process) ? role : std::nullopt;
}

bool KillTool::isSeenByUs(const ProcessInfo& process) const {
  struct stat file {};
  if (!process.executableDeleted && lstat(process.executable.c_str(), &file) == 0 &&
      file.st_dev == process.executableDevice && file.st_ino == process.executableInode) {
    return true;
  }
  return process.executableDeleted && table_.hasOurRoot(process.pid);
}

void KillTool::stopTargets(const std::vector<Target>& targets, int slowness) {
  const Deadline end = std::chrono::steady_clock::now() + settings_.ask / slowness;
  for (const QmasterRole role :
       {QmasterRole::client, QmasterRole::controller, QmasterRole::queue, QmasterRole::daemon}) {
    ask(targets, role);
  }
  noteDescendants(look());  // while parents that take their time are still known
  for (const Target& target : targets) static_cast<void>(waitForExit(target.handle, end));
  noteDescendants(look());
  force(targets, settings_.force);
}

void KillTool::ask(const std::vector<Target>& targets, QmasterRole role) {
  for (const Target& target : targets) {
    if (target.role != role || stopRequested()) continue;
    if (signal(target, SIGTERM)) static_cast<void>(signal(target, SIGCONT));
  }
}

void KillTool::force(const std::vector<Target>& targets, Milliseconds patience) {
  std::vector<const Target*> forced;
  for (const Target& target : targets) {
    if (stopRequested() || target.handle.waitForExit(Milliseconds(0))) continue;
    if (signal(target, SIGKILL)) forced.push_back(&target);
  }
  const Deadline deadline = std::chrono::steady_clock::now() + patience;
  for (const Target* target : forced) static_cast<void>(waitForExit(target->handle, deadline));
}

/// A process that has ended meanwhile is no failure, and needs no waiting.
bool KillTool::signal(const Target& target, int number) {
  if (onSignal_) onSignal_(target.handle.info(), number);
  const auto sent = target.handle.signal(number);
  if (!sent && sent.error().code != ESRCH) report_.failure(sent.error());
  return sent.ok();
}

}  // namespace helpers
