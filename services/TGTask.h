#pragma once

#include <any>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Notifications.h"
#include "platform/Subprocesses.h"

/// Holds a subprocess for whoever may want to end it from another thread.
class TGTaskSlot {
 public:
  void store(std::shared_ptr<platform::Subprocess> task);
  [[nodiscard]] std::shared_ptr<platform::Subprocess> load() const;

  /// Between the two a run is about to launch a subprocess; the second is called when it has, and when it
  /// never will.
  void expectLaunch();
  void noteLaunch();
  /// Returns at once where no launch is expected.
  void waitForLaunch() const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable launched_;
  bool isExpected_ = false;
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
/// are no text in the encoding asked for (ASCII has no byte above 127). Time-outs are cut to whole seconds;
/// one of less than a second ends the tool as soon as it runs. A path that is not executable, a folder or a
/// package is reported on the system console and in the log as "Error: %@ is not executable". A tool that
/// cannot be launched for another reason throws foundation::Exception.
///
/// The static operations run on the caller's thread and may be called from any. No arguments (nullopt) run
/// the tool without any.
///
/// An instance is needed for a time-out and for an asynchronous run. It belongs to its callers and to the
/// threads that it has started, whoever ends last.
class TGTask : public std::enable_shared_from_this<TGTask> {
 public:
  using Arguments = std::optional<std::vector<std::string>>;
  using Interval = std::chrono::duration<double>;

  /// Receives each piece of an asynchronous run's output on the run's own thread, an empty piece at the end;
  /// the last argument is the caller's object, nullptr when none was given.
  using Delegate = std::function<void(const std::string& data, TGTask& task, const std::any* object)>;

  [[nodiscard]] static std::shared_ptr<TGTask> create();
  ~TGTask() = default;
  TGTask(const TGTask&) = delete;
  TGTask& operator=(const TGTask&) = delete;

  /// Runs a tool with its output discarded and waits for it; false when it is not executable. The slot, if
  /// given, holds the subprocess from before its launch.
  static bool runTask(const std::string& path, const Arguments& arguments, TGTaskSlot* task = nullptr);
  static void runTask(const std::string& path, const Arguments& arguments, Interval timeout);

  static int terminationCodeFromTask(const std::string& path, const Arguments& arguments,
                                     TGTaskSlot* task = nullptr);
  static int terminationCodeFromTask(const std::string& path, const Arguments& arguments, Interval timeout);

  /// Captures what a tool writes until it has closed both streams; its exit is not waited for. Standard
  /// output is read to its end before standard error is read at all: a tool that fills the pipe of its
  /// standard error while its output is open waits for as long as the caller does.
  static std::optional<std::string> dataFromTask(const std::string& path, const Arguments& arguments,
                                                 TGTaskSlot* task);
  static std::optional<std::string> dataFromTask(const std::string& path, const Arguments& arguments,
                                                 Interval timeout);

  /// The same as text; ASCII where no encoding is given.
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   StringEncoding encoding, TGTaskSlot* task);
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   TGTaskSlot* task = nullptr);
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   StringEncoding encoding, Interval timeout);
  static std::optional<std::string> stringFromTask(const std::string& path, const Arguments& arguments,
                                                   Interval timeout);

  /// Starts a tool with its output discarded and returns at once; the tool may outlive the program. The
  /// slot, if given, holds the subprocess, for a caller that means to wait after all.
  static void runTaskAndReturn(const std::string& path, const Arguments& arguments,
                               TGTaskSlot* task = nullptr);

  /// The subprocess currently run for this instance; nullptr when none is.
  [[nodiscard]] std::shared_ptr<platform::Subprocess> theTask() const { return theTask_.load(); }
  void setTheTask(std::shared_ptr<platform::Subprocess> task) { theTask_.store(std::move(task)); }

  /// The instance's forms of runTask, terminationCodeFromTask and dataFromTask with a time-out, which a class
  /// cannot name as it names its static ones. The tool that still runs after that many seconds is asked to
  /// end, on the main thread, which must be serving its work for that; the run then returns as for any exit.
  /// A timer cannot be called off: it holds the instance for the whole interval, and would end a later timed
  /// run of the same instance. Where no thread can be had for the timer, that is
  /// logged and the run has no time-out. REQUIRES an instance made by create().
  void runTimedTask(const std::string& path, const Arguments& arguments, Interval timeout);
  int terminationCodeFromTimedTask(const std::string& path, const Arguments& arguments, Interval timeout);
  std::optional<std::string> dataFromTimedTask(const std::string& path, const Arguments& arguments,
                                               Interval timeout);

  /// The timer: sleeps the whole interval, and on until a subprocess that is about to be launched has been;
  /// then performs timeout() on the main thread and waits for that.
  void setupTimeout(std::chrono::seconds interval);

  /// Asks a subprocess that still runs to end, and says so on the system console and in the log. REQUIRES the
  /// main thread.
  void timeout();

  /// Starts a tool and returns at once; its output goes to the delegate piece by piece, its standard error to
  /// the null device. The path is not checked; a tool that cannot be launched is logged and ends like one
  /// that prints nothing. The instance can be used again when theTask() is nullptr. REQUIRES an instance made
  /// by create() without an asynchronous run under way.
  void asyncDataFromTask(const std::string& path, const Arguments& arguments, Delegate delegate,
                         std::any object = {});

  /// The steps of an asynchronous run, in order: launches theTask() and reads it to its end, hands over each
  /// piece, and, after the empty one, closes the output, lets go of delegate and object, and asks the tool to
  /// end, which may have closed its output without ending. A notification carries its piece under
  /// "NSFileHandleNotificationDataItem"; it is handed straight over, not posted.
  /// They are for the run's own thread, on which the delegate is called; another one ends a run by
  /// theTask()->terminate().
  void launchAsyncTask();
  void asyncTaskReturnData(const platform::LocalNotification& notification);
  void terminateAsyncTask();

 private:
  TGTask() = default;

  void startTimer(std::chrono::seconds interval);
  template <typename Run>
  auto runUnderTimeout(Interval timeout, Run run);

  TGTaskSlot theTask_;
  Delegate delegate_;
  std::any object_;
};
