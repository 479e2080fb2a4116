#pragma once

#include <any>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Subprocesses.h"

/// Holds a subprocess for whoever may want to end it from another thread.
class TGTaskSlot {
 public:
  void store(std::shared_ptr<platform::Subprocess> task);
  [[nodiscard]] std::shared_ptr<platform::Subprocess> load() const;

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<platform::Subprocess> task_;
};

/// How bytes are read as text.
enum class StringEncoding { ascii = 1, utf8 = 4 };

/// Runs external tools, given by their full path, and hands back what the caller chooses: nothing, the
/// termination code, the output bytes or the output as text.
///
/// Termination code: the tool's exit status (the signal's number when a signal ended it), -1 when it could
/// not be run. Output bytes: nullopt when it could not be run. A tool that writes anything to standard error
/// yields that text instead of its output. Output text: "" when it could not be run; nullopt when the bytes
/// are no text in the encoding asked for. Time-outs are cut to whole seconds. A path that is not executable,
/// or a package, is reported on the system console and in the log as "Error: %@ is not executable". A tool
/// that cannot be launched for another reason throws foundation::Exception.
class TGTask : public std::enable_shared_from_this<TGTask> {
 public:
  using Arguments = std::optional<std::vector<std::string>>;
  using Interval = std::chrono::duration<double>;

  /// Receives each piece of an asynchronous run's output on the run's own thread, an empty piece at the end;
  /// the last argument is the caller's object, nullptr when none was given.
  using Delegate = std::function<void(const std::string& data, TGTask& task, const std::any* object)>;

  [[nodiscard]] static std::shared_ptr<TGTask> create();
  ~TGTask();
  TGTask(const TGTask&) = delete;
  TGTask& operator=(const TGTask&) = delete;

  /// Runs a tool with its output discarded and waits for it; false when it is not executable. The slot, if
  /// given, holds the subprocess from before its launch.
  static bool runTask(const std::string& path, const Arguments& arguments, TGTaskSlot* task = nullptr);
  static void runTask(const std::string& path, const Arguments& arguments, Interval timeout);

  static int terminationCodeFromTask(const std::string& path, const Arguments& arguments,
                                     TGTaskSlot* task = nullptr);
  static int terminationCodeFromTask(const std::string& path, const Arguments& arguments, Interval timeout);

  static std::optional<std::string> dataFromTask(const std::string& path, const Arguments& arguments,
                                                 TGTaskSlot* task);
  static std::optional<std::string> dataFromTask(const std::string& path, const Arguments& arguments,
                                                 Interval timeout);

  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   StringEncoding encoding, TGTaskSlot* task);
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   TGTaskSlot* task = nullptr);
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   StringEncoding encoding, Interval timeout);
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   Interval timeout);

  /// Starts a tool with its output discarded and returns at once; the tool may outlive the program.
  static void runTaskAndReturn(const std::string& path, const Arguments& arguments);
};
