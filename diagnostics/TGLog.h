#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "diagnostics/SerialOperationQueue.h"
#include "platform/Files.h"
#include "platform/foundation/ImmortalSingleton.h"
#include "platform/foundation/Text.h"

/// The application's log: a UTF-8 text file per application name in "Logs/Vordenworks" of the user's Library,
/// in five generations.
///
///   Quillmend.1.log  the current one; at 500,000 bytes, and at each start,
///   1 -> 2 -> 3 -> 4 -> 5, the oldest is dropped, and a new 1 begins.
///
/// A file begins with a header (date, version, program, system); each entry is "date - message" and a line
/// feed, written in one piece. Bytes that are not UTF-8, line breaks inside a message and escape sequences
/// reach the file as they are.
///
/// As root the current log lies in the local Library ("/Library/Logs/Vordenworks"), while the folder that is
/// looked for, made, and rotated in is still the user's. Where the local folder is missing, root logs nowhere
/// and says so on the system console.
///
/// A new log that could not be begun, because its volume was full for example, is begun by the first entry
/// that can; those before it are lost and said so. No entry begins a log that nothing has asked for.
///
/// Two programs of one name may append to the same file. Each moves the other's generations on when it
/// begins: what has a file open goes on in it under its new name. Neither ever replaces what the other has
/// begun: where both begin at the same moment, the later one moves the other's file on or appends to it, and
/// each drops one generation, as after each other. Root's log in the local Library is not rotated: as root a
/// program replaces the one that is there when it begins.
///
/// Entries are written on a queue of their own; any thread may append. The object is never freed and the
/// process's exit does not wait for the queue: the entry point calls finishWriting() before it returns.
///
/// Nothing here reports failure to its caller; failures are lines on the system console. Formats are those of
/// foundation::stringWithFormat; nullopt for a format does nothing. The switch "disable-logging" in the
/// maker's global preferences file (the string "1", true, or the number 1) turns the log off for the rest of
/// the process, from the next createNewLog on.
class TGLog : public foundation::ImmortalSingleton<TGLog> {
 public:
  using Format = std::optional<std::string>;
  using FormatArguments = std::span<const foundation::FormatArgument>;
  using FileHandle = std::shared_ptr<platform::WritableFile>;
  using WriteQueue = std::shared_ptr<SerialOperationQueue>;

  static TGLog* sharedController();

  /// Rotates the generations and begins a new log; the first name given stays for the life of the process.
  static void createNewLog(const std::optional<std::string>& name);
  static void createNewLog();

  /// Appends one entry, without the white space and line breaks at its ends. Short messages (1 to 99
  /// characters) at an idle log are on disk when this returns; longer ones never make the caller wait.
  template <typename... Arguments>
  static void appendLog(const Format& format, const Arguments&... arguments) {
    appendFormatted(format, foundation::formatArguments(arguments...));
  }

  /// The same, printed to the system console as well. The filled text is formatted a second time on its way
  /// into the log, on purpose.
  template <typename... Arguments>
  static void appendLogAndPrint(const Format& format, const Arguments&... arguments) {
    appendFormattedAndPrint(format, foundation::formatArguments(arguments...));
  }

  /// Blocks until every entry queued is written; called by a queued write, it returns at once.
  static void finishWriting();

  /// Frees nothing; the entries queued so far are written when it returns.
  void release() { finishWriting(); }

  /// The base name of the files. While none has been set this answers the name of the program's executable
  /// without its extension, and the field stays empty.
  [[nodiscard]] std::string appName() const;
  void setAppName(std::string name);

  /// The current file, positioned at its end; nullptr while none is open.
  [[nodiscard]] FileHandle fileHandle() const;
  void setFileHandle(FileHandle handle);

  /// Bytes of whole entries appended to the current file since it was begun; its header does not count.
  [[nodiscard]] std::uint64_t bytesWritten() const { return bytesWritten_; }
  void setBytesWritten(std::uint64_t count) { bytesWritten_ = count; }

  [[nodiscard]] WriteQueue writeQueue() const;
  void setWriteQueue(WriteQueue queue);

  /// Characters (not bytes, on purpose) of the messages queued and not processed yet, dates not counted.
  /// Messages that meet a disabled log or a failing write stay counted.
  [[nodiscard]] std::uint64_t bytesInQueue() const { return bytesInQueue_; }
  void setBytesInQueue(std::uint64_t count) { bytesInQueue_ = count; }

  [[nodiscard]] bool loggingDisabled() const { return loggingDisabled_; }
  void setLoggingDisabled(bool disabled) { loggingDisabled_ = disabled; }

 private:
  friend foundation::ImmortalSingleton<TGLog>;
  TGLog() = default;
  ~TGLog() = default;

  static void appendFormatted(const Format& format, FormatArguments arguments);
  static void appendFormattedAndPrint(const Format& format, FormatArguments arguments);

  void appendLogOnThread(const std::string& message, std::uint64_t length);
  void writeEntry(const std::string& message);
  void rotateWhenFull();

  void adoptName(const std::string& name);
  void beginNewFile();
  [[nodiscard]] FileHandle beginOwedFile();
  [[nodiscard]] bool rotate(const std::string& folder) const;
  [[nodiscard]] std::string generationPath(const std::string& folder, int generation) const;
  [[nodiscard]] std::optional<std::string> currentLogPath() const;
  [[nodiscard]] FileHandle openCurrentLog();

  /// Guards the fields that are no atomics while they are read and replaced, nothing more.
  mutable std::mutex fields_;
  std::string appName_;
  FileHandle fileHandle_;
  std::atomic<std::uint64_t> bytesWritten_ = 0;
  std::atomic<std::uint64_t> bytesInQueue_ = 0;
  std::atomic<bool> loggingDisabled_ = false;
  std::atomic<bool> isOwed_ = false;  ///< a new log that could not be begun, or not be opened
  std::atomic<bool> hasWriteQueue_ = false;
  WriteQueue writeQueue_;  ///< last, so that it is drained before what its operations use is gone
};
