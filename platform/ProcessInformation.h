#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// About this process and the computer.
class ProcessInformation {
 public:
  virtual ~ProcessInformation() = default;

  /// The arguments as given, the program's path first.
  [[nodiscard]] virtual std::vector<std::string> arguments() = 0;

  [[nodiscard]] virtual std::string processName() = 0;

  /// The operating system's version in words ("Version 10.6.8 (Build 10K549)").
  [[nodiscard]] virtual std::string operatingSystemVersionString() = 0;

  [[nodiscard]] virtual int processorCount() = 0;

  /// Bytes.
  [[nodiscard]] virtual std::uint64_t physicalMemory() = 0;

  /// A string that no other call, process or computer gets.
  [[nodiscard]] virtual std::string globallyUniqueString() = 0;
};

/// Requests to end that the process has got: SIGTERM, SIGINT, SIGHUP.
class Interruption {
 public:
  virtual ~Interruption() = default;

  /// From now on such a signal is only noted, so that the step under way can end. A signal that was ignored
  /// when the program started (nohup) stays ignored.
  virtual void defer() = 0;

  /// The first signal noted, or nullopt.
  [[nodiscard]] virtual std::optional<int> requested() = 0;

  /// Gives the signals their usual effect back and, when one was noted, lets it end the process.
  virtual void deliver() = 0;
};

}  // namespace platform
