#include "services/TGTask.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Text.h"
#include "services/TGFileManager.h"

namespace {

using platform::Stream;
using platform::Subprocess;
using platform::SubprocessOptions;

constexpr const char* kDataNotification = "TGAsyncTaskDataNotification";
constexpr const char* kDataItem = "NSFileHandleNotificationDataItem";

/// Folders are looked for apart: the system calls a folder that may be searched executable.
bool isExecutable(const std::string& path) {
  if (platform::current().subprocesses.isExecutableFile(path) && !TGFileManager::isDirectoryAtPath(path) &&
      !TGFileManager::isPackageAtPath(path)) {
    return true;
  }
  NSLog("Error: %@ is not executable", path);
  TGLog::appendLog("Error: %@ is not executable", path);
  return false;
}

SubprocessOptions options(const std::string& path, const TGTask::Arguments& arguments) {
  SubprocessOptions result{.launchPath = path};
  if (arguments) result.arguments = *arguments;
  return result;
}

SubprocessOptions discardingOutput(const std::string& path, const TGTask::Arguments& arguments) {
  SubprocessOptions result = options(path, arguments);
  result.standardOutput = Stream::nullDevice;
  result.standardError = Stream::nullDevice;
  return result;
}

SubprocessOptions capturingOutput(const std::string& path, const TGTask::Arguments& arguments) {
  SubprocessOptions result = options(path, arguments);
  result.standardInput = Stream::pipe;  // nothing is ever written to it
  result.standardOutput = Stream::pipe;
  result.standardError = Stream::pipe;
  return result;
}

/// Makes a subprocess and records it before its launch, so that another thread can end it from its beginning.
std::shared_ptr<Subprocess> prepare(SubprocessOptions subprocessOptions, TGTaskSlot* slot) {
  auto task = platform::current().subprocesses.create(std::move(subprocessOptions));
  if (slot != nullptr) slot->store(task);
  return task;
}

void launch(Subprocess& task, TGTaskSlot* slot) {
  task.launch();
  if (slot != nullptr) slot->noteLaunch();
}

/// Output is read to its end before errors are read at all, on purpose: callers count on whole output, and
/// the tools that they run write few errors.
std::string readStreams(Subprocess& task) {
  std::string output;
  std::string errors;
  while (task.appendAvailableOutput(output) > 0 || task.appendAvailableError(errors) > 0) {
  }
  // A tool that complains has its complaint returned in place of its output, on purpose.
  return errors.empty() ? std::move(output) : std::move(errors);
}

std::optional<std::string> decoded(std::optional<std::string> data, StringEncoding encoding) {
  if (!data) return "";
  const auto isAscii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
  const bool isText = encoding == StringEncoding::utf8 ? foundation::isUtf8(*data)
                                                       : std::all_of(data->begin(), data->end(), isAscii);
  return isText ? std::move(data) : std::nullopt;
}

/// Cuts towards zero. What no timer could hold (and what is no number) becomes the nearest that one can.
std::chrono::seconds wholeSeconds(TGTask::Interval interval) {
  constexpr double longest = 1e9;
  if (std::isnan(interval.count())) return std::chrono::seconds(0);
  const double seconds = std::clamp(interval.count(), -longest, longest);
  return std::chrono::seconds(static_cast<std::chrono::seconds::rep>(seconds));
}

platform::LocalNotification dataNotification(std::string data) {
  platform::LocalNotification notification{kDataNotification, {}};
  notification.userInfo.set(kDataItem, foundation::PropertyList::Data{std::move(data)});
  return notification;
}

std::string dataOf(const platform::LocalNotification& notification) {
  const auto* item = notification.userInfo.find(kDataItem);
  const auto* data = item != nullptr ? item->as<foundation::PropertyList::Data>() : nullptr;
  return data != nullptr ? data->bytes : std::string();
}

}  // namespace

void TGTaskSlot::store(std::shared_ptr<Subprocess> task) {
  const std::scoped_lock lock(mutex_);
  task_.swap(task);
}

std::shared_ptr<Subprocess> TGTaskSlot::load() const {
  const std::scoped_lock lock(mutex_);
  return task_;
}

void TGTaskSlot::expectLaunch() {
  const std::scoped_lock lock(mutex_);
  isExpected_ = true;
}

void TGTaskSlot::noteLaunch() {
  {
    const std::scoped_lock lock(mutex_);
    isExpected_ = false;
  }
  launched_.notify_all();
}

void TGTaskSlot::waitForLaunch() const {
  std::unique_lock lock(mutex_);
  launched_.wait(lock, [this] { return !isExpected_; });
}

std::shared_ptr<TGTask> TGTask::create() {
  return std::shared_ptr<TGTask>(new TGTask());
}

bool TGTask::runTask(const std::string& path, const Arguments& arguments, TGTaskSlot* task) {
  if (!isExecutable(path)) return false;
  const auto subprocess = prepare(discardingOutput(path, arguments), task);
  launch(*subprocess, task);
  subprocess->waitUntilExit();
  return true;
}

void TGTask::runTask(const std::string& path, const Arguments& arguments, Interval timeout) {
  create()->runTimedTask(path, arguments, timeout);
}

int TGTask::terminationCodeFromTask(const std::string& path, const Arguments& arguments, TGTaskSlot* task) {
  if (!isExecutable(path)) return -1;
  const auto subprocess = prepare(discardingOutput(path, arguments), task);
  launch(*subprocess, task);
  if (subprocess->isRunning()) subprocess->waitUntilExit();
  return subprocess->terminationStatus();
}

int TGTask::terminationCodeFromTask(const std::string& path, const Arguments& arguments, Interval timeout) {
  return create()->terminationCodeFromTimedTask(path, arguments, timeout);
}

std::optional<std::string> TGTask::dataFromTask(const std::string& path, const Arguments& arguments,
                                                TGTaskSlot* task) {
  if (!isExecutable(path)) return std::nullopt;
  const auto subprocess = prepare(capturingOutput(path, arguments), task);
  launch(*subprocess, task);
  std::string data = readStreams(*subprocess);
  subprocess->closeError();
  subprocess->closeOutput();
  return data;
}

std::optional<std::string> TGTask::dataFromTask(const std::string& path, const Arguments& arguments,
                                                Interval timeout) {
  return create()->dataFromTimedTask(path, arguments, timeout);
}

std::optional<std::string> TGTask::stringFromTask(const std::string& path, const Arguments& arguments,
                                                  StringEncoding encoding, TGTaskSlot* task) {
  return decoded(dataFromTask(path, arguments, task), encoding);
}

std::optional<std::string> TGTask::stringFromTask(const std::string& path, const Arguments& arguments,
                                                  TGTaskSlot* task) {
  return stringFromTask(path, arguments, StringEncoding::ascii, task);
}

std::optional<std::string> TGTask::stringFromTask(const std::string& path, const Arguments& arguments,
                                                  StringEncoding encoding, Interval timeout) {
  return decoded(dataFromTask(path, arguments, timeout), encoding);
}

std::optional<std::string> TGTask::stringFromTask(const std::string& path, const Arguments& arguments,
                                                  Interval timeout) {
  return stringFromTask(path, arguments, StringEncoding::ascii, timeout);
}

void TGTask::runTaskAndReturn(const std::string& path, const Arguments& arguments, TGTaskSlot* task) {
  if (!isExecutable(path)) return;
  launch(*prepare(discardingOutput(path, arguments), task), task);
}

/// The timer is let go of, and not called off either: it sleeps its interval to the end and finds the slot
/// empty. It touches nothing but the instance that it holds and the platform, which is never freed, so that
/// the program can end meanwhile. A system that has no thread left for it is no reason not to run the tool.
void TGTask::startTimer(std::chrono::seconds interval) {
  guarded("-[TGTask setupTimeout:]", [&] {
    std::thread([self = shared_from_this(), interval] {
      guarded("-[TGTask setupTimeout:]", [&] { self->setupTimeout(interval); });
    }).detach();
  });
}

template <typename Run>
auto TGTask::runUnderTimeout(Interval timeout, Run run) {
  struct Clearing {
    TGTaskSlot& slot;
    ~Clearing() {
      slot.store(nullptr);
      slot.noteLaunch();  // or there will be none
    }
  };
  theTask_.expectLaunch();
  startTimer(wholeSeconds(timeout));
  theTask_.store(nullptr);
  const Clearing clearing{theTask_};
  return run();
}

void TGTask::runTimedTask(const std::string& path, const Arguments& arguments, Interval timeout) {
  runUnderTimeout(timeout, [&] { return runTask(path, arguments, &theTask_); });
}

int TGTask::terminationCodeFromTimedTask(const std::string& path, const Arguments& arguments,
                                         Interval timeout) {
  return runUnderTimeout(timeout, [&] { return terminationCodeFromTask(path, arguments, &theTask_); });
}

std::optional<std::string> TGTask::dataFromTimedTask(const std::string& path, const Arguments& arguments,
                                                     Interval timeout) {
  return runUnderTimeout(timeout, [&] { return dataFromTask(path, arguments, &theTask_); });
}

void TGTask::setupTimeout(std::chrono::seconds interval) {
  platform::current().clock.sleep(interval);
  theTask_.waitForLaunch();  // a short interval may be over before there is anything to end
  platform::current().mainThread.perform([this] { timeout(); }, platform::Wait::yes);
}

void TGTask::timeout() {
  const auto task = theTask();
  if (!task || !task->isRunning()) return;
  NSLog("Task timed out. Terminating...");
  TGLog::appendLog("Task %@ timed out. Terminating...", task->launchPath());
  task->terminate();
}

void TGTask::asyncDataFromTask(const std::string& path, const Arguments& arguments, Delegate delegate,
                               std::any object) {
  delegate_ = std::move(delegate);
  object_ = std::move(object);
  SubprocessOptions subprocessOptions = options(path, arguments);
  subprocessOptions.standardOutput = Stream::pipe;
  subprocessOptions.standardError = Stream::nullDevice;
  setTheTask(platform::current().subprocesses.create(std::move(subprocessOptions)));
  std::thread([self = shared_from_this()] {
    if (!guarded("-[TGTask launchAsyncTask]", [&] { self->launchAsyncTask(); })) self->terminateAsyncTask();
  }).detach();
}

void TGTask::launchAsyncTask() {
  const auto task = theTask();
  if (!task) {
    TGLog::appendLog("Unable to launch async task - no task set");
    return;
  }
  if (!guarded("-[TGTask launchAsyncTask]", [&] { task->launch(); })) {
    setTheTask(nullptr);  // there is nothing to close or to end
    asyncTaskReturnData(dataNotification({}));
    return;
  }
  std::string data;
  do {
    data = task->availableOutput();
    asyncTaskReturnData(dataNotification(data));
  } while (!data.empty() && theTask() == task);
}

void TGTask::asyncTaskReturnData(const platform::LocalNotification& notification) {
  const std::string data = dataOf(notification);
  const Delegate delegate = delegate_;  // copies: the delegate may end the run, which lets go of both
  const std::any object = object_;
  if (delegate) delegate(data, *this, object.has_value() ? &object : nullptr);
  if (data.empty()) terminateAsyncTask();
}

void TGTask::terminateAsyncTask() {
  const auto task = theTask();
  if (task) task->closeOutput();
  delegate_ = nullptr;
  object_.reset();
  if (task) task->terminate();
  setTheTask(nullptr);
}
