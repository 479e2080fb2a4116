#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>

#include "platform/foundation/Result.h"

namespace platform {

/// What the tools exit with. The numbers above 63 are those of sysexits.h.
enum class ExitStatus {
  done = 0,     ///< everything asked for is done, or there was nothing to do
  failed = 1,   ///< something could not be done; each such entry has its line on standard error
  usage = 64,   ///< wrong arguments, of a helper a relative path too; nothing was touched
  refused = 77  ///< what is asked for is never done, for example to a protected folder; nothing was touched
};

/// A text as part of one line: control characters, line ends of Unicode, marks that turn the writing
/// direction, bytes that are not UTF-8 and the backslash come out as "\n", "\t", "\\" or three octal digits
/// per byte.
[[nodiscard]] std::string escaped(std::string_view text);

/// Where a tool says what it could not do: one line an entry on a descriptor, standard error as a rule, and
/// in the system log: a repair gives its tools no standard error that anybody sees. Wrong arguments are for
/// the caller alone.
/// A closed or broken descriptor never stops the work. Nor does a pipe or terminal that nobody reads: a line
/// waits for room for `patience`, then lines are dropped without waiting until one gets through again.
/// Remembers whether anything failed.
class Report {
 public:
  /// How long a write waits for room, at most.
  static constexpr std::chrono::milliseconds kPatience{1000};

  /// `systemLog` is the log's socket, "" for none.
  explicit Report(std::string toolName, int descriptor = 2, std::chrono::milliseconds patience = kPatience,
                  std::string systemLog = "")
      : toolName_(std::move(toolName)),
        descriptor_(descriptor),
        patience_(patience),
        systemLog_(std::move(systemLog)) {}

  /// "tool: path: reason", with the path escaped.
  void failure(std::string_view path, std::string_view reason);
  void failure(const foundation::Error& error) { failure(error.path, reasonOf(error)); }

  /// "path: moved to place", in the system log alone: whoever puts things back has to know where they were.
  void moved(std::string_view path, std::string_view place) const;
  /// "path: moving to place", the same for several items before the first of them is moved: what stays after
  /// all is a failure of its own.
  void moving(std::string_view path, std::string_view place) const;

  /// "tool: message" for what is no failure.
  void warning(std::string_view message) { say(std::string(message)); }

  /// "tool: message" for a run that does nothing; returns the status for the caller to hand on.
  ExitStatus stop(ExitStatus status, std::string_view message);

  [[nodiscard]] bool anyFailure() const { return anyFailure_; }
  [[nodiscard]] ExitStatus status() const { return anyFailure_ ? ExitStatus::failed : ExitStatus::done; }

 private:
  [[nodiscard]] static std::string reasonOf(const foundation::Error& error);
  void say(const std::string& text);
  void writeLine(const std::string& message);
  [[nodiscard]] bool hasRoom(std::chrono::milliseconds patience) const;
  [[nodiscard]] ssize_t writeSome(int reopened, std::string_view text) const;

  std::string toolName_;
  int descriptor_;
  std::chrono::milliseconds patience_;
  std::string systemLog_;
  bool anyFailure_ = false;
  bool isStuck_ = false;  ///< nobody reads: the next line does not wait
};

}  // namespace platform
