#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "workstation/Difference.h"
#include "workstation/Records.h"
#include "workstation/Snapshot.h"
#include "workstation/Visit.h"

/// The real program on a sample workstation, and everything that can be seen of what it did.
namespace workstation {

inline constexpr const char* quillmend = "/Applications/Quillmend.app/Contents/MacOS/Quillmend";
inline constexpr const char* localLog = "/Library/Logs/Vordenworks/Quillmend.task.1.log";
inline constexpr const char* aliceTrash = "/Users/alice/.Trash";

/// A line of standard error. One of the system console's ("2011-01-01 10:00:00.000 Quillmend[12:12] text") is
/// taken apart; any other is kept whole, without a time.
struct ConsoleLine {
  std::string text;
  std::optional<std::chrono::milliseconds> time;  ///< since midnight
};

/// A log file: the lines before the first entry, and the entries without their dates. A line of another form
/// is kept whole.
struct LogFile {
  std::vector<std::string> header;
  std::vector<std::string> entries;
};

struct Outcome {
  VisitResult visit;
  std::vector<ConsoleLine> console;
  std::vector<RecordLine> calls;      ///< of stand-in tools, in the order in which they were started
  std::vector<std::string> finished;  ///< the output of each finish notification; "(none)" for one without
  std::string finishedBus;            ///< that the last of them came on
  std::vector<std::string> shown;     ///< texts of the desktop notifications under the title "Quillmend"
  std::vector<std::string> running;   ///< at the end: "root /usr/sbin/qmasterd", sorted, each once
  Difference difference;
  Snapshot before;
  Snapshot after;

  [[nodiscard]] std::vector<std::string> consoleTexts() const;
  [[nodiscard]] std::vector<std::string> callTexts() const;

  /// How long the program took from that console line to the next one.
  [[nodiscard]] std::chrono::milliseconds timeAfter(std::string_view line) const;

  /// From the start of one tool to that of the next; the first call with that text counts.
  [[nodiscard]] std::chrono::milliseconds timeAfterCall(std::string_view call) const;
};

/// The options of a visit by the bundle that was built, whose desktop notifications run out at once.
[[nodiscard]] VisitOptions programVisit();

/// Runs the program with these arguments.
[[nodiscard]] Outcome run(const Volume& volume, const std::vector<std::string>& arguments,
                          const VisitOptions& options = programVisit());

/// Runs a line of the shell in which "$Q" is the program.
[[nodiscard]] Outcome runShell(const Volume& volume, const std::string& line,
                               const VisitOptions& options = programVisit());

/// What there is to see of a visit that the caller has made. The snapshot is of the time before it.
[[nodiscard]] Outcome outcomeOf(const Volume& volume, const VisitResult& visit, Snapshot before);

/// The log file at a path inside; nullopt when there is none.
[[nodiscard]] std::optional<LogFile> readLog(const Volume& volume, std::string_view path = localLog);

/// Path, kind, owner and mode of a thing: "d 501:20 755".
[[nodiscard]] std::string describe(const Snapshot& snapshot, const std::string& path);

/// What moved into one folder, as the sorted paths that it came from. A failure is added for a thing whose
/// owner, mode or content changed on the way, or that has another name there than its own, with a date.
[[nodiscard]] std::vector<std::string> movedInto(const Outcome& outcome, const std::string& folder);

/// Paths that are there, gone or changed as a whole, sorted.
[[nodiscard]] std::vector<std::string> created(const Outcome& outcome);
[[nodiscard]] std::vector<std::string> removed(const Outcome& outcome);
[[nodiscard]] std::vector<std::string> changed(const Outcome& outcome);

}  // namespace workstation
