#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/ImmortalSingleton.h"
#include "platform/foundation/Text.h"

/// The application's log: a text file per application name in the user's Library, in five generations.
///
///   Quillmend.1.log  the current one; at 500,000 bytes, and at each start,
///   1 -> 2 -> 3 -> 4 -> 5, the oldest is dropped, and a new 1 begins.
///
/// Writes happen on a queue of their own. Nothing here reports failure to its caller; failures are lines on
/// the system console. Formats are those of foundation::stringWithFormat; nullopt for a format does nothing.
class TGLog : public foundation::ImmortalSingleton<TGLog> {
 public:
  using Format = std::optional<std::string>;
  using FormatArguments = std::vector<foundation::FormatArgument>;

  static TGLog* sharedController();

  /// Rotates the generations and begins a new log; the first name given stays for the life of the process.
  static void createNewLog(const std::optional<std::string>& name);
  static void createNewLog();

  /// Appends one entry. Short messages at an idle log are on disk when this returns; longer ones never make
  /// the caller wait.
  template <typename... Arguments>
  static void appendLog(const Format& format, const Arguments&... arguments) {
    appendFormatted(format, FormatArguments{foundation::FormatArgument(arguments)...});
  }

  /// The same, printed to the system console as well. The filled text is formatted a second time on its way
  /// into the log, on purpose.
  template <typename... Arguments>
  static void appendLogAndPrint(const Format& format, const Arguments&... arguments) {
    appendFormattedAndPrint(format, FormatArguments{foundation::FormatArgument(arguments)...});
  }

  /// Blocks until every entry queued is written; called by a queued write, it returns at once.
  static void finishWriting();

 private:
  friend foundation::ImmortalSingleton<TGLog>;
  TGLog();
  ~TGLog();

  static void appendFormatted(const Format& format, const FormatArguments& arguments);
  static void appendFormattedAndPrint(const Format& format, const FormatArguments& arguments);
};
