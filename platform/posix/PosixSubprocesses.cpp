#include "platform/posix/PosixSubprocesses.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/foundation/Exception.h"
#include "platform/posix/ChildCalls.h"
#include "platform/posix/Pipe.h"
#include "platform/posix/ReadableWait.h"
#include "platform/posix/SpawnedProgram.h"

namespace platform {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kReadSize = 128UL << 10;
constexpr std::size_t kMostHandedOut = 64UL << 10;
constexpr std::size_t kMuch = 1UL << 20;
constexpr std::size_t kTimesForMuch = 1024;
constexpr std::size_t kMostKept = 1UL << 20;
/// How long a wait goes on before it looks whether the child is stuck at a full pipe.
constexpr milliseconds kLookAround{20};

[[noreturn]] void refuse(int reason, const std::string& path) {
  throw foundation::Exception(foundation::kInvalidArgumentException,
                              foundation::systemError(reason, path).localizedDescription());
}

/// Much output is given room for many times as much: what of it is not used costs no memory, but where the
/// system promises no more than it has, while each further move would take as long as reading it. Where there
/// is no such room, some more must do.
void makeRoom(std::string& text, std::size_t bytes, PosixSubprocesses::UseLargePages* useLargePages) {
  const std::size_t needed = text.size() + bytes;
  if (needed <= text.capacity() || needed <= kMuch) return;
  try {
    text.reserve(needed * kTimesForMuch);
  } catch (const std::exception&) {  // or the text could not be so long
    text.reserve(needed * 2);
  }
  if (useLargePages != nullptr) useLargePages(text.data(), text.capacity());
}

/// Reads what a child writes. From a pipe that holds little it is read ahead, so that a child that writes
/// much to the stream which is read last does not get stuck. May be used by several threads.
class Output {
 public:
  void open(UniqueDescriptor pipe, const PosixSubprocesses::Extras& extras) {
    const std::scoped_lock lock(mutex_);
    ::fcntl(pipe.get(), F_SETFL, ::fcntl(pipe.get(), F_GETFL) | O_NONBLOCK);
    holdsLittle_ = extras.makePipeHold == nullptr || !extras.makePipeHold(pipe.get(), kMostKept);
    useLargePages_ = extras.useLargePages;
    pipe_ = std::move(pipe);
  }
  void close() {
    const std::scoped_lock lock(mutex_);
    pipe_.reset();
    kept_.clear();
  }
  /// Readable when there is something to take; -1 when closed.
  [[nodiscard]] int descriptor() {
    const std::scoped_lock lock(mutex_);
    return pipe_.get();
  }
  /// Whether there is something to take though the descriptor may not say so.
  [[nodiscard]] bool hasKept() {
    const std::scoped_lock lock(mutex_);
    return !kept_.empty();
  }
  /// Whether its pipe must be looked after while something else is waited for.
  [[nodiscard]] bool holdsLittle() {
    const std::scoped_lock lock(mutex_);
    return pipe_ && holdsLittle_;
  }
  /// What there is; empty at the end; nullopt when there is nothing yet.
  std::optional<std::string> take() {
    const std::scoped_lock lock(mutex_);
    std::string bytes = kept_.substr(0, kMostHandedOut);
    kept_.erase(0, bytes.size());
    if (bytes.empty() && !readInto(bytes, kMostHandedOut)) return std::nullopt;
    return bytes;
  }
  /// Adds what there is to a text: how many bytes; 0 at the end; nullopt when there is nothing yet.
  std::optional<std::size_t> takeInto(std::string& text) {
    const std::scoped_lock lock(mutex_);
    makeRoom(text, std::max(kept_.size(), kReadSize), useLargePages_);
    if (kept_.empty()) return readInto(text, kReadSize);
    text += kept_;
    return std::exchange(kept_, {}).size();
  }
  void readAhead() {
    const std::scoped_lock lock(mutex_);
    while (pipe_ && holdsLittle_ && kept_.size() < kMostKept) {
      if (readInto(kept_, kReadSize).value_or(0) == 0) return;
    }
  }

 private:
  /// By way of a buffer that stays in the cache: room in the text itself would have to be filled first.
  std::optional<std::size_t> readInto(std::string& text, std::size_t most) {
    if (!pipe_) return 0;
    std::array<char, kReadSize> buffer;  // NOLINT(*-member-init)
    ssize_t length = -1;
    do {
      length = ::read(pipe_.get(), buffer.data(), std::min(most, buffer.size()));
    } while (length < 0 && errno == EINTR);
    if (length < 0 && errno == EAGAIN) return std::nullopt;
    const auto bytes = static_cast<std::size_t>(std::max<ssize_t>(length, 0));
    text.append(buffer.data(), bytes);
    return bytes;
  }

  std::mutex mutex_;
  UniqueDescriptor pipe_;
  bool holdsLittle_ = false;
  PosixSubprocesses::UseLargePages* useLargePages_ = nullptr;
  std::string kept_;
};

/// What a child gets for a stream; the end of a pipe is its own to close.
struct ChildStream {
  int descriptor = -1;
  UniqueDescriptor pipeEnd = {};
};

/// How a child is started and seen to its end.
struct Start {
  std::string executable;
  OpensOnDesktop opensOnDesktop = OpensOnDesktop::no;
  WatchChild* watch = nullptr;
  PosixSubprocesses::Extras extras = {};
};

class PosixSubprocess final : public Subprocess {
 public:
  PosixSubprocess(SubprocessOptions options, Start start, MainThread& mainThread)
      : options_(std::move(options)), start_(std::move(start)), mainThread_(mainThread) {}

  const std::string& launchPath() const override { return options_.launchPath; }
  void launch() override;
  bool isRunning() override {
    const auto child = running();
    return child != nullptr && !child->status();
  }
  void waitUntilExit() override;
  int terminationStatus() override;
  void terminate() override {
    if (const auto child = running()) child->terminate();
  }
  std::string availableOutput() override { return piece(output_); }
  std::string availableError() override { return piece(error_); }
  std::size_t appendAvailableOutput(std::string& text) override { return append(output_, text); }
  std::size_t appendAvailableError(std::string& text) override { return append(error_, text); }
  void closeOutput() override { output_.close(); }
  void closeError() override { error_.close(); }

 private:
  ChildStream connect(Stream kind, int stream);
  void watch(pid_t child);
  std::shared_ptr<RunningChild> running();
  template <typename Take>
  auto readFrom(Output& stream, Take take) -> typename decltype(take())::value_type;
  std::string piece(Output& stream) {
    return readFrom(stream, [&] { return stream.take(); });
  }
  std::size_t append(Output& stream, std::string& text) {
    return readFrom(stream, [&] { return stream.takeInto(text); });
  }
  void readAhead();
  std::optional<milliseconds> patience();
  void waitForMore(Output& stream, int pipe);

  const SubprocessOptions options_;
  const Start start_;
  MainThread& mainThread_;
  Output output_;
  Output error_;
  std::mutex mutex_;  ///< guards what follows
  std::shared_ptr<RunningChild> child_;
};

std::shared_ptr<RunningChild> PosixSubprocess::running() {
  const std::scoped_lock lock(mutex_);
  return child_;
}

/// This process's own end of a pipe becomes output_ or error_; that of the child's input is closed at once.
ChildStream PosixSubprocess::connect(Stream kind, int stream) {
  if (kind == Stream::inherited) return {ownStream(stream)};
  if (kind == Stream::nullDevice) return {};
  Pipe pipe = makePipe();
  if (!pipe.reading) refuse(errno, launchPath());
  if (stream == STDOUT_FILENO) output_.open(std::move(pipe.reading), start_.extras);
  if (stream == STDERR_FILENO) error_.open(std::move(pipe.reading), start_.extras);
  UniqueDescriptor childsEnd = std::move(stream == STDIN_FILENO ? pipe.reading : pipe.writing);
  const int number = childsEnd.get();
  return {number, std::move(childsEnd)};
}

void PosixSubprocess::watch(pid_t child) {
  auto watched = start_.watch(child);
  if (!watched) refuse(watched.error().code, launchPath());
  const std::scoped_lock lock(mutex_);
  child_ = std::move(watched).value();
}

void PosixSubprocess::launch() {
  const ChildStream input = connect(options_.standardInput, STDIN_FILENO);
  const ChildStream output = connect(options_.standardOutput, STDOUT_FILENO);
  const ChildStream error = connect(options_.standardError, STDERR_FILENO);
  ProgramToSpawn program{
      .command = options_.arguments,
      .environment = childEnvironment(ownEnvironment(), ::geteuid() == 0, start_.opensOnDesktop),
      .standardInput = input.descriptor,
      .standardOutput = output.descriptor,
      .standardError = error.descriptor,
      .executable = start_.executable,
      .session = ChildSession::own};
  program.command.insert(program.command.begin(), launchPath());
  const auto child = spawnProgram(program);
  if (!child) refuse(child.error().code, launchPath());
  watch(child.value());
}

void PosixSubprocess::readAhead() {
  output_.readAhead();
  error_.readAhead();
}

/// How long a wait may last before it is to look around.
std::optional<milliseconds> PosixSubprocess::patience() {
  return output_.holdsLittle() || error_.holdsLittle() ? std::optional(kLookAround) : std::nullopt;
}

void PosixSubprocess::waitUntilExit() {
  const auto child = running();
  while (child != nullptr && !child->status()) {
    readAhead();
    waitUntilReadable(mainThread_, child->descriptor(), patience());
  }
}

/// Where there is some already the main thread's work is served all the same: a child that never stops
/// writing must not keep it from being done.
void PosixSubprocess::waitForMore(Output& stream, int pipe) {
  readAhead();
  if (stream.hasKept()) {
    waitUntilReadable(mainThread_, -1, milliseconds(0));
  } else {
    waitUntilReadable(mainThread_, pipe, patience());
  }
}

int PosixSubprocess::terminationStatus() {
  if (isRunning()) {
    throw foundation::Exception(foundation::kInvalidArgumentException, launchPath() + " is still running");
  }
  const auto child = running();
  return child == nullptr ? -1 : child->status().value_or(-1);
}

template <typename Take>
auto PosixSubprocess::readFrom(Output& stream, Take take) -> typename decltype(take())::value_type {
  for (int pipe = stream.descriptor(); pipe >= 0; pipe = stream.descriptor()) {
    waitForMore(stream, pipe);
    if (auto taken = take()) return std::move(*taken);
  }
  return {};
}

}  // namespace

std::shared_ptr<Subprocess> PosixSubprocesses::create(SubprocessOptions options) {
  const std::string executable = executableFor(options.launchPath);
  return std::make_shared<PosixSubprocess>(
      std::move(options), Start{executable, opensOnDesktop(executable), watch_, extras_}, mainThread_);
}

bool PosixSubprocesses::isExecutableFile(const std::string& path) {
  return mayBeExecuted(executableFor(path));
}

bool PosixSubprocesses::mayBeExecuted(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) &&
         ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

}  // namespace platform
