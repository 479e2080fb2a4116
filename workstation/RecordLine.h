#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace workstation {

/// One line of a record file. On disk: the fields below in their order, then the arguments, parted by tabs;
/// in each, a backslash is written \\, a tab \t and a line feed \n, every other byte as it is.
///
/// Lines are appended with one write(2) to a descriptor opened with O_APPEND, so that lines of processes that
/// write at the same time neither mix nor get lost.
struct RecordLine {
  std::string kind;                    ///< for example "call", "done", "start", "quit"
  std::chrono::nanoseconds monotonic;  ///< CLOCK_MONOTONIC, which pauses are measured by
  std::chrono::nanoseconds realtime;   ///< CLOCK_REALTIME, since 1970
  uid_t user = 0;                      ///< real user id
  uid_t effectiveUser = 0;
  pid_t process = 0;
  std::string path;  ///< the executable
  std::vector<std::string> arguments;

  bool operator==(const RecordLine&) const = default;
};

/// A line of this process, at this moment.
[[nodiscard]] RecordLine recordNow(std::string kind, std::string path, std::vector<std::string> arguments);

/// The line as it stands in the file, with its line feed.
[[nodiscard]] std::string encoded(const RecordLine& line);

/// The reverse, without the line feed; nullopt for text that is no such line.
[[nodiscard]] std::optional<RecordLine> decoded(std::string_view text);

/// Appends to a file, which is made (readable and writable by all) where it is missing. Answers whether the
/// whole line was written.
bool appendRecord(const std::string& file, const RecordLine& line);

/// A field with its backslashes, tabs and line feeds written out, and the reverse.
[[nodiscard]] std::string escaped(std::string_view field);
[[nodiscard]] std::string unescaped(std::string_view field);

/// The parts between a separator; always at least one.
[[nodiscard]] std::vector<std::string> split(std::string_view text, char separator);

/// The whole content of a small file; nullopt when it cannot be read.
[[nodiscard]] std::optional<std::string> contentsOf(const std::string& file);

}  // namespace workstation
