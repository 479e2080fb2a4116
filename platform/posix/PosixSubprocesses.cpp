#include "platform/posix/PosixSubprocesses.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "platform/foundation/Exception.h"
#include "platform/posix/ReadableWait.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::systemError;

constexpr std::size_t kReadSize = 64UL << 10;
constexpr std::size_t kMostKept = 1UL << 20;
/// How long a wait goes on before it looks whether the child is stuck at a full pipe.
constexpr std::chrono::milliseconds kLookAround{20};

[[noreturn]] void refuse(int reason, const std::string& path) {
  throw foundation::Exception(foundation::kInvalidArgumentException,
                              systemError(reason, path).localizedDescription());
}

/// Above the three standard ones, also in a process that was started with one of them closed.
UniqueDescriptor raised(int descriptor) {
  if (descriptor > STDERR_FILENO) {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return UniqueDescriptor(descriptor);
  }
  const UniqueDescriptor low(descriptor);
  return UniqueDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

struct Pipe {
  UniqueDescriptor reading;
  UniqueDescriptor writing;
};

Pipe makePipe(const std::string& path) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) refuse(errno, path);
  Pipe pipe{raised(ends[0]), raised(ends[1])};
  if (!pipe.reading || !pipe.writing) refuse(EMFILE, path);
  return pipe;
}

/// A child from its start to its end, shared by the object that stands for it and the thread that waits for
/// it.
class WatchedChild {
 public:
  /// Nothing is ever written to the pipe: its end says that the child has ended.
  WatchedChild(pid_t child, Pipe end)
      : child_(child), ended_(std::move(end.reading)), alive_(std::move(end.writing)) {}

  void waitForEnd() {
    siginfo_t information{};
    // Left to be waited for, so that its number is nobody else's until the lock is held.
    while (::waitid(P_PID, static_cast<id_t>(child_), &information, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    const std::scoped_lock lock(mutex_);
    int status = 0;
    const pid_t waited = ::waitpid(child_, &status, 0);
    status_ = waited != child_ ? -1 : WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    alive_.reset();
  }
  void terminate() {
    const std::scoped_lock lock(mutex_);
    if (!status_) ::kill(child_, SIGTERM);
  }
  [[nodiscard]] std::optional<int> status() {
    const std::scoped_lock lock(mutex_);
    return status_;
  }
  /// At its end once the child has ended.
  [[nodiscard]] int descriptor() const { return ended_.get(); }

 private:
  const pid_t child_;
  const UniqueDescriptor ended_;
  std::mutex mutex_;  ///< guards what follows
  UniqueDescriptor alive_;
  std::optional<int> status_;
};

/// Reads what a child writes. A pipe holds little; what is read ahead, so that a child that writes much to
/// the stream which is read last does not get stuck, is kept here. May be used by several threads.
class Output {
 public:
  void open(UniqueDescriptor pipe) {
    const std::scoped_lock lock(mutex_);
    ::fcntl(pipe.get(), F_SETFL, ::fcntl(pipe.get(), F_GETFL) | O_NONBLOCK);
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
  /// What there is; empty at the end; nullopt when there is nothing yet.
  std::optional<std::string> take() {
    const std::scoped_lock lock(mutex_);
    if (kept_.empty() && pipe_) {
      if (readMore() < 0 && errno == EAGAIN) return std::nullopt;
    }
    std::string bytes = kept_.substr(0, kReadSize);
    kept_.erase(0, bytes.size());
    return bytes;
  }
  void readAhead() {
    const std::scoped_lock lock(mutex_);
    while (pipe_ && kept_.size() < kMostKept && readMore() > 0) {
    }
  }

 private:
  ssize_t readMore() {
    std::string bytes(kReadSize, '\0');
    ssize_t length = -1;
    do {
      length = ::read(pipe_.get(), bytes.data(), bytes.size());
    } while (length < 0 && errno == EINTR);
    if (length > 0) kept_.append(bytes, 0, static_cast<std::size_t>(length));
    return length;
  }

  std::mutex mutex_;
  UniqueDescriptor pipe_;
  std::string kept_;
};

/// What a child gets for a stream; the end of a pipe is its own to close.
struct ChildStream {
  int descriptor = -1;
  UniqueDescriptor pipeEnd = {};
};

class PosixSubprocess final : public Subprocess {
 public:
  PosixSubprocess(SubprocessOptions options, MainThread& mainThread, StartChild* start)
      : options_(std::move(options)), mainThread_(mainThread), start_(start) {}

  const std::string& launchPath() const override { return options_.launchPath; }
  void launch() override;
  bool isRunning() override {
    const auto child = watched();
    return child != nullptr && !child->status();
  }
  void waitUntilExit() override {
    const auto child = watched();
    while (child != nullptr && !child->status()) lookAroundUntilReadable(child->descriptor());
  }
  int terminationStatus() override;
  void terminate() override {
    if (const auto child = watched()) child->terminate();
  }
  std::string availableOutput() override { return readFrom(output_); }
  std::string availableError() override { return readFrom(error_); }
  void closeOutput() override { output_.close(); }
  void closeError() override { error_.close(); }

 private:
  ChildStream connect(Stream kind, int stream);
  void watch(pid_t child, Pipe end);
  std::shared_ptr<WatchedChild> watched();
  std::string readFrom(Output& stream);
  void lookAroundUntilReadable(int descriptor);

  const SubprocessOptions options_;
  MainThread& mainThread_;
  StartChild* const start_;
  Output output_;
  Output error_;
  std::mutex mutex_;  ///< guards what follows
  std::shared_ptr<WatchedChild> child_;
};

std::shared_ptr<WatchedChild> PosixSubprocess::watched() {
  const std::scoped_lock lock(mutex_);
  return child_;
}

/// This process's own end of a pipe becomes output_ or error_; that of the child's input is closed at once.
ChildStream PosixSubprocess::connect(Stream kind, int stream) {
  if (kind == Stream::inherited) return {::fcntl(stream, F_GETFD) < 0 ? -1 : stream};
  if (kind == Stream::nullDevice) return {};
  Pipe pipe = makePipe(launchPath());
  if (stream == STDOUT_FILENO) output_.open(std::move(pipe.reading));
  if (stream == STDERR_FILENO) error_.open(std::move(pipe.reading));
  UniqueDescriptor childsEnd = std::move(stream == STDIN_FILENO ? pipe.reading : pipe.writing);
  const int number = childsEnd.get();
  return {number, std::move(childsEnd)};
}

/// A child that cannot be watched must not run on unseen.
void PosixSubprocess::watch(pid_t child, Pipe end) {
  const auto started = std::make_shared<WatchedChild>(child, std::move(end));
  try {
    std::thread([started] { started->waitForEnd(); }).detach();
  } catch (const std::system_error& error) {
    ::kill(child, SIGKILL);
    started->waitForEnd();
    refuse(error.code().value(), launchPath());
  }
  const std::scoped_lock lock(mutex_);
  child_ = started;
}

/// Has the kernel keep the exit statuses of children, which it throws away where this program was started
/// with SIGCHLD ignored.
void keepExitStatuses() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) return;
  const bool isIgnored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
  if (!isIgnored && (action.sa_flags & SA_NOCLDWAIT) == 0) return;
  if (isIgnored) action.sa_handler = SIG_DFL;
  action.sa_flags &= ~SA_NOCLDWAIT;
  ::sigaction(SIGCHLD, &action, nullptr);
}

void PosixSubprocess::launch() {
  keepExitStatuses();
  const auto hasZeroByte = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  if (hasZeroByte(launchPath()) ||
      std::any_of(options_.arguments.begin(), options_.arguments.end(), hasZeroByte)) {
    refuse(EINVAL, launchPath());
  }
  const ChildStream input = connect(options_.standardInput, STDIN_FILENO);
  const ChildStream output = connect(options_.standardOutput, STDOUT_FILENO);
  const ChildStream error = connect(options_.standardError, STDERR_FILENO);
  Pipe end = makePipe(launchPath());
  ChildToStart child{launchPath(), options_.arguments, input.descriptor, output.descriptor, error.descriptor};
  child.command.insert(child.command.begin(), launchPath());
  const auto started = start_(child);
  if (!started) refuse(started.error().code, launchPath());
  watch(started.value(), std::move(end));
}

/// Returns when the descriptor is readable, or to have the caller look again.
void PosixSubprocess::lookAroundUntilReadable(int descriptor) {
  output_.readAhead();
  error_.readAhead();
  waitUntilReadable(mainThread_, descriptor, kLookAround);
}

int PosixSubprocess::terminationStatus() {
  if (isRunning()) {
    throw foundation::Exception(foundation::kInvalidArgumentException, launchPath() + " is still running");
  }
  const auto child = watched();
  return child == nullptr ? -1 : child->status().value_or(-1);
}

std::string PosixSubprocess::readFrom(Output& stream) {
  while (true) {
    if (auto bytes = stream.take()) return std::move(*bytes);
    lookAroundUntilReadable(stream.descriptor());
  }
}

}  // namespace

std::shared_ptr<Subprocess> PosixSubprocesses::create(SubprocessOptions options) {
  return std::make_shared<PosixSubprocess>(std::move(options), mainThread_, start_);
}

bool PosixSubprocesses::isExecutableFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) &&
         ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

}  // namespace platform
