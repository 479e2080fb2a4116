#include "diagnostics/TGLog.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include "diagnostics/GlobalPreferences.h"
#include "platform/Platform.h"
#include "platform/foundation/Exception.h"
#include "platform/foundation/Paths.h"
#include "services/TGLocalPaths.h"

// There is no lock around createNewLog, a queued write or finishWriting, on purpose: the queue's width of one
// orders the writes, and a lock made afresh for each call would exclude nobody.

namespace {

constexpr std::uint64_t kFullLog = 500'000;  ///< decimal on purpose, not 500 x 1024
constexpr std::uint64_t kLongestAwaitedMessage = 99;
constexpr int kOldestGeneration = 5;

std::optional<std::string> logFolder() {
  const auto library = TGLocalPaths::libraryDirectory(Domain::user);
  if (!library) return std::nullopt;
  return *library + "/Logs/Vordenworks";
}

/// Makes the folder if need be. Whatever is there already is taken for a folder.
bool prepareFolder(const std::optional<std::string>& folder) {
  platform::Platform& platform = platform::current();
  if (folder && platform.fileQueries.exists(*folder)) return true;
  if (folder && platform.fileChanges.createDirectory(*folder)) return true;
  NSLog("Unable to create folder %@.", folder);
  return false;
}

std::string programLines() {
  platform::MainBundle& bundle = platform::current().mainBundle;
  const foundation::PropertyList information = bundle.infoDictionary();
  const foundation::PropertyList* const version = information.find("CFBundleVersion");
  const std::string executable = bundle.executablePath();
  std::string lines;
  if (version != nullptr) lines += foundation::stringWithFormat("Version: %@\n", *version);
  if (!executable.empty()) lines += foundation::stringWithFormat("Path: %@\n", executable);
  return lines;
}

std::string systemLines() {
  platform::ProcessInformation& information = platform::current().processInformation;
  const double gigabytes = static_cast<double>(information.physicalMemory()) / 1024 / 1024 / 1024;
  return foundation::stringWithFormat("System: OS X %@, %i CPU(s), %0.2f GB RAM\n",
                                      information.operatingSystemVersionString(),
                                      information.processorCount(), gigabytes) +
         (sizeof(void*) == 8 ? "Running in 64-bit mode\n" : "Running in 32-bit mode\n");
}

std::string header() {
  const std::string date = platform::current().clock.now().description();
  return foundation::stringWithFormat("Log started: %@\n", date) + programLines() + systemLines();
}

/// Entries are dated to the second, so that a date is made into text once in it.
const std::string& dateNow() {
  thread_local std::optional<std::chrono::seconds> second;
  thread_local std::string date;
  const foundation::Date now = platform::current().clock.now();
  const auto current = std::chrono::floor<std::chrono::seconds>(now.moment().time_since_epoch());
  if (current != second) date = now.description();
  second = current;
  return date;
}

bool isThere(const std::string& path) {
  return platform::current().fileQueries.exists(path);
}

/// What no rotation moves away and no program has open as its log.
bool isLinkToNothing(const std::string& path) {
  return !isThere(path) && platform::current().fileAttributes.isSymbolicLink(path);
}

enum class Existing { replaced, kept };

/// Makes a file with nothing but the header; EEXIST where what is there is kept. Entries are not synced
/// either; a rotation that waited for the disk would have every entry behind it wait as well.
foundation::Result<void> writeHeader(const std::optional<std::string>& path, Existing existing) {
  if (!path) return foundation::systemError(ENOENT, "");
  platform::FileChanges& changes = platform::current().fileChanges;
  const bool isReplaced = existing == Existing::replaced || isLinkToNothing(*path);
  return isReplaced ? changes.writeAtomicallyUnsynced(*path, header())
                    : changes.createFileUnsynced(*path, header());
}

bool isTaken(const foundation::Result<void>& written) {
  return !written && written.error().code == EEXIST;
}

}  // namespace

TGLog* TGLog::sharedController() {
  const std::scoped_lock lock(monitor());
  TGLog* const log = instance() != nullptr ? instance() : alloc();
  if (!log->hasWriteQueue_) log->setWriteQueue(std::make_shared<SerialOperationQueue>());
  return log;
}

void TGLog::createNewLog(const std::optional<std::string>& name) {
  TGLog* const log = sharedController();
  finishWriting();
  log->setFileHandle(nullptr);
  if (isSwitchedOnInGlobalPreferences("disable-logging")) {
    NSLog("Logging is disabled");
    log->setLoggingDisabled(true);
    return;
  }
  if (name) log->adoptName(*name);
  log->setBytesWritten(0);
  log->isOwed_ = false;
  log->beginNewFile();
}

void TGLog::createNewLog() {
  createNewLog(std::nullopt);
}

void TGLog::finishWriting() {
  sharedController()->writeQueue()->waitUntilAllOperationsAreFinished();
}

void TGLog::appendFormatted(const Format& format, FormatArguments arguments) {
  if (!format) return;
  TGLog* const log = sharedController();
  std::string message = foundation::formatText(*format, arguments);
  const std::string_view part = foundation::trimmedPart(message);
  if (part.size() < message.size()) message = std::string(part);
  const std::uint64_t length = foundation::characterCount(message);
  log->bytesInQueue_ += length;
  log->writeQueue()->addOperation(
      [log, length, message = std::move(message)] { log->appendLogOnThread(message, length); });
  // 99 for the message and 99 for all that is queued, both on purpose. An empty message waits for nothing.
  const bool isShort = length > 0 && length <= kLongestAwaitedMessage;
  if (isShort && log->bytesInQueue() <= kLongestAwaitedMessage) finishWriting();
}

void TGLog::appendFormattedAndPrint(const Format& format, FormatArguments arguments) {
  if (!format) return;
  const std::string text = foundation::formatText(foundation::trimmed(*format), arguments);
  appendLog(text);  // as the format, on purpose: a percent sign in it is formatted a second time
  NSLog("%@", text);
}

void TGLog::appendLogOnThread(const std::string& message, std::uint64_t length) {
  try {
    // Neither a disabled log nor a failing write takes the message off the count, on purpose: callers then
    // no longer wait for short messages.
    if (loggingDisabled()) return;
    writeEntry(message);
    bytesInQueue_ -= length;
  } catch (const std::exception& exception) {
    if (!loggingDisabled()) NSLog("Exception writing to log: %@", exception.what());
  }
}

void TGLog::writeEntry(const std::string& message) {
  FileHandle handle = fileHandle();
  if (!handle) handle = openCurrentLog();
  if (!handle) handle = beginOwedFile();
  if (!handle) {
    NSLog("Unable to log the following information: %@", message);
    NSLog("Unable to open log for output");
    return;
  }
  thread_local std::string entry;  // its room is used again
  entry.assign(dateNow()).append(" - ").append(message).append("\n");
  if (const auto written = handle->write(entry); !written) {
    throw foundation::Exception(foundation::kFileHandleOperationException,
                                written.error().localizedDescription());
  }
  bytesWritten_ += entry.size();
  rotateWhenFull();
}

/// Runs within a queued write. finishWriting returns at once there, so neither createNewLog nor the short
/// message waits for the write that is under way; the message becomes the next operation.
void TGLog::rotateWhenFull() {
  if (bytesWritten() < kFullLog) return;
  // With the getter's answer: a log that was never named is given the executable's name for good.
  createNewLog(appName());
  appendLog("Log truncated at 500KB");
}

void TGLog::beginNewFile() {
  const auto folder = logFolder();
  const auto path = currentLogPath();
  if (!prepareFolder(folder)) return;
  isOwed_ = true;
  // As root the two are about different folders: the local log is looked for and replaced, the user's are
  // moved.
  const bool isOld = path && isThere(*path);
  if (isOld && !rotate(*folder)) return;
  const bool isLeft = isOld && path != generationPath(*folder, 1);
  auto written = writeHeader(path, isLeft ? Existing::replaced : Existing::kept);
  // Another program has begun it since: moved on like any log that is there, but not after a rotation. Each
  // beginning is to drop no more than one generation.
  if (isTaken(written) && !isOld) {
    if (!rotate(*folder)) return;
    written = writeHeader(path, Existing::kept);
  }
  if (written || isTaken(written)) {
    static_cast<void>(openCurrentLog());
  } else {
    NSLog("Unable to create log file %@ - %@", path, written.error().localizedDescription());
  }
}

/// A volume that was full when a new log was to begin has room again at some time, and what another program
/// had moved on before it was opened is begun anew. Said once was enough.
TGLog::FileHandle TGLog::beginOwedFile() {
  if (!isOwed_) return nullptr;
  const auto written = writeHeader(currentLogPath(), Existing::kept);
  return written || isTaken(written) ? openCurrentLog() : nullptr;
}

/// What another program moves on at the same moment counts as moved. Nothing is lost by two that rotate at
/// once: no move replaces anything, and each of them drops one file at most.
bool TGLog::rotate(const std::string& folder) const {
  platform::FileChanges& changes = platform::current().fileChanges;
  const std::string oldest = generationPath(folder, kOldestGeneration);
  // A failure shows when the next generation is moved there.
  if (isThere(oldest)) static_cast<void>(changes.remove(oldest));
  for (int generation = kOldestGeneration - 1; generation >= 1; --generation) {
    const std::string from = generationPath(folder, generation);
    const std::string to = generationPath(folder, generation + 1);
    if (!isThere(from) || changes.move(from, to) || !isThere(from)) continue;
    NSLog("Unable to move file %@ to %@", from, to);
    return false;
  }
  return true;
}

std::string TGLog::generationPath(const std::string& folder, int generation) const {
  return folder + foundation::stringWithFormat("/%@.%i.log", appName(), generation);
}

std::optional<std::string> TGLog::currentLogPath() const {
  const bool isRoot = platform::current().usersAndFolders.userID() == 0;
  // On purpose only the current log of root moves to the local Library; folder and generations stay the
  // user's.
  const auto library = TGLocalPaths::libraryDirectory(isRoot ? Domain::local : Domain::user);
  if (!library) return std::nullopt;
  return *library + foundation::stringWithFormat("/Logs/Vordenworks/%@.1.log", appName());
}

/// Never creates the file. A handle that cannot be put at the file's end is as good as none; with one no log
/// is owed any more.
TGLog::FileHandle TGLog::openCurrentLog() {
  const auto path = currentLogPath();
  if (!path) return nullptr;
  auto file = platform::current().fileChanges.openForWriting(*path);
  if (!file || !file.value()->seekToEnd()) return nullptr;
  FileHandle handle = std::move(file).value();
  setFileHandle(handle);
  isOwed_ = false;
  return handle;
}

std::string TGLog::appName() const {
  {
    const std::scoped_lock lock(fields_);
    if (!appName_.empty()) return appName_;
  }
  const std::string executable = platform::current().mainBundle.executablePath();
  return foundation::deletingPathExtension(foundation::lastPathComponent(executable));
}

void TGLog::setAppName(std::string name) {
  const std::scoped_lock lock(fields_);
  appName_ = std::move(name);
}

void TGLog::adoptName(const std::string& name) {
  const std::scoped_lock lock(fields_);
  if (appName_.empty()) appName_ = name;
}

TGLog::FileHandle TGLog::fileHandle() const {
  const std::scoped_lock lock(fields_);
  return fileHandle_;
}

void TGLog::setFileHandle(FileHandle handle) {
  const std::scoped_lock lock(fields_);
  fileHandle_ = std::move(handle);
}

TGLog::WriteQueue TGLog::writeQueue() const {
  const std::scoped_lock lock(fields_);
  return writeQueue_;
}

void TGLog::setWriteQueue(WriteQueue queue) {
  const std::scoped_lock lock(fields_);
  writeQueue_ = std::move(queue);
  hasWriteQueue_ = writeQueue_ != nullptr;
}
