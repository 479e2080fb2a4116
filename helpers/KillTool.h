#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "helpers/QmasterPrograms.h"
#include "helpers/Tool.h"
#include "platform/posix/ProcessTable.h"

namespace helpers {

/// killtool: stops Qmaster and the applications that use it (qmasterRole says which programs those are).
///
/// One role after the other is asked to end (SIGTERM, and SIGCONT for one that is stopped), none waited for
/// in between: a repair does not wait for this tool, and a service that is still there when the repair starts
/// it again would not be started. All are then waited for together, up to `ask`; what is left is ended by
/// force (SIGKILL) and waited for up to `force`. The same is done up to `rounds` times, each further round
/// with a quarter of the time and only for what descends from an earlier target, or runs since before this
/// process. A daemon that the system or a repair has started meanwhile is meant to stay.
///
/// Each process is held (ProcessTable.h) from the moment it is recognised. A process counts only if the file
/// that it runs is the one that we see at that path too, so that a program of that path in another root
/// folder is not ours; where the file has been replaced or removed, our root folder must be that process's.
/// Never touched: this process and those that it descends from, process 1, and kernel threads. Ended
/// processes that nobody has waited for are passed over.
class KillTool {
 public:
  struct Settings {
    std::string rootFolder;  ///< what lies before each path; empty for "/"
    std::chrono::milliseconds ask{1500};
    std::chrono::milliseconds force{1000};
    int rounds = 3;
  };

  KillTool(platform::ProcessTable table, Settings settings, Report& report)
      : table_(std::move(table)), settings_(std::move(settings)), report_(report) {}

  /// `arguments` without the tool's name: there must be none. ExitStatus::failed where something still runs.
  [[nodiscard]] ExitStatus run(const std::vector<std::string>& arguments);

  /// Called before each signal.
  using OnSignal = std::function<void(const platform::ProcessInfo& process, int signal)>;
  void onSignal(OnSignal onSignal) { onSignal_ = std::move(onSignal); }

 private:
  struct Target {
    QmasterRole role;
    platform::ProcessHandle handle;
  };
  using Milliseconds = std::chrono::milliseconds;

  using Processes = std::map<pid_t, platform::ProcessInfo>;

  [[nodiscard]] Processes look() const;
  [[nodiscard]] std::vector<Target> findTargets();
  [[nodiscard]] bool isOfFamily(pid_t pid, const Processes& seen) const;
  [[nodiscard]] bool descendsFromTarget(const platform::ProcessInfo& process, const Processes& seen) const;
  void noteDescendants(const Processes& seen);
  [[nodiscard]] std::optional<QmasterRole> roleOf(const platform::ProcessInfo& process) const;
  [[nodiscard]] bool isSeenByUs(const platform::ProcessInfo& process) const;
  void stopTargets(const std::vector<Target>& targets, int slowness);
  void ask(const std::vector<Target>& targets, QmasterRole role);
  void force(const std::vector<Target>& targets, Milliseconds patience);
  [[nodiscard]] bool signal(const Target& target, int number);

  platform::ProcessTable table_;
  Settings settings_;
  Report& report_;
  OnSignal onSignal_;
  bool firstRound_ = true;
  std::uint64_t ownStart_ = 0;
  std::map<pid_t, std::uint64_t>
      family_;  ///< start times of the targets and of what was seen to descend from them
};

}  // namespace helpers
