#include "platform/linux/LinuxSubprocesses.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <optional>

#include "platform/foundation/Exception.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Result.h"
#include "platform/linux/ChildEnvironment.h"
#include "platform/linux/ChildReaper.h"
#include "platform/linux/ProcessDescriptor.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

constexpr int kPipeSize = 1 << 20;
constexpr std::size_t kReadSize = 64UL << 10;
constexpr int kFirstFreeDescriptor = 3;
constexpr const char* kOpener = "/usr/bin/open";

[[noreturn]] void refuse(const std::string& path, int reason) {
  throw foundation::Exception(foundation::kInvalidArgumentException,
                              foundation::systemError(reason, path).localizedDescription());
}

/// Never 0, 1 or 2: where those are closed in this process a pipe would land on them and be taken for a
/// standard stream.
UniqueDescriptor aboveStandardStreams(UniqueDescriptor descriptor) {
  if (!descriptor || descriptor.get() >= kFirstFreeDescriptor) return descriptor;
  return UniqueDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstFreeDescriptor));
}

struct Pipe {
  UniqueDescriptor readingEnd;
  UniqueDescriptor writingEnd;
};

Pipe makePipe(const std::string& launchPath) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) refuse(launchPath, errno);
  Pipe pipe{UniqueDescriptor(ends[0]), UniqueDescriptor(ends[1])};
  pipe.readingEnd = aboveStandardStreams(std::move(pipe.readingEnd));
  pipe.writingEnd = aboveStandardStreams(std::move(pipe.writingEnd));
  if (!pipe.readingEnd || !pipe.writingEnd) refuse(launchPath, errno);
  ::fcntl(pipe.writingEnd.get(), F_SETPIPE_SZ, kPipeSize);
  return pipe;
}

/// posix_spawn's list of what to do with descriptors.
class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void duplicate(int from, int to) { ::posix_spawn_file_actions_adddup2(&actions_, from, to); }
  void openNullDevice(int to) {
    ::posix_spawn_file_actions_addopen(&actions_, to, "/dev/null", to == STDIN_FILENO ? O_RDONLY : O_WRONLY,
                                       0);
  }
  void inherit(int stream) {
    if (::fcntl(stream, F_GETFD) < 0) {
      openNullDevice(stream);
    } else {
      duplicate(stream, stream);  // clears close-on-exec
    }
  }
  void closeTheRest() { ::posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstFreeDescriptor); }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

/// Signals reset and unblocked, a session of its own.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_,
                               POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

/// Strings as exec takes them; they outlive it.
std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& text : strings) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// With SIGCHLD ignored the kernel reaps children itself and their statuses are lost; a parent's shell can
/// hand that down.
void keepExitStatuses() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) return;
  const bool isIgnored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
  if (!isIgnored && (action.sa_flags & SA_NOCLDWAIT) == 0) return;
  if (isIgnored) action.sa_handler = SIG_DFL;
  action.sa_flags &= ~SA_NOCLDWAIT;
  ::sigaction(SIGCHLD, &action, nullptr);
}

class LinuxSubprocess final : public Subprocess {
 public:
  LinuxSubprocess(SubprocessOptions options, std::string executable, MainThread& mainThread)
      : options_(std::move(options)), executable_(std::move(executable)), mainThread_(mainThread) {}
  ~LinuxSubprocess() override {
    if (LinuxSubprocess::isRunning()) reapWhenEnded(std::move(pidfd_));
  }
  LinuxSubprocess(const LinuxSubprocess&) = delete;
  LinuxSubprocess& operator=(const LinuxSubprocess&) = delete;

  const std::string& launchPath() const override { return options_.launchPath; }
  void launch() override;
  bool isRunning() override;
  void waitUntilExit() override;
  int terminationStatus() override;
  void terminate() override;
  std::string availableOutput() override { return readFrom(output_); }
  std::string availableError() override { return readFrom(error_); }
  void closeOutput() override { output_.reset(); }
  void closeError() override { error_.reset(); }

 private:
  UniqueDescriptor connect(FileActions& actions, Stream kind, int stream);
  pid_t spawn(const FileActions& actions);
  void watch(pid_t child);
  std::string readFrom(const UniqueDescriptor& pipe);
  void blockUntilReadable(int descriptor);

  const SubprocessOptions options_;
  const std::string executable_;
  MainThread& mainThread_;
  UniqueDescriptor output_;
  UniqueDescriptor error_;
  std::mutex mutex_;  ///< guards what follows
  UniqueDescriptor pidfd_;
  std::optional<int> status_;
};

/// Connects a stream of the child. A pipe's end in the child comes back, to be closed after the start; this
/// process's own end becomes output_ or error_.
UniqueDescriptor LinuxSubprocess::connect(FileActions& actions, Stream kind, int stream) {
  if (kind == Stream::inherited) actions.inherit(stream);
  if (kind == Stream::nullDevice) actions.openNullDevice(stream);
  if (kind != Stream::pipe) return {};
  Pipe pipe = makePipe(launchPath());
  UniqueDescriptor childsEnd = std::move(stream == STDIN_FILENO ? pipe.readingEnd : pipe.writingEnd);
  actions.duplicate(childsEnd.get(), stream);
  if (stream == STDOUT_FILENO) output_ = std::move(pipe.readingEnd);
  if (stream == STDERR_FILENO) error_ = std::move(pipe.readingEnd);
  return childsEnd;
}

pid_t LinuxSubprocess::spawn(const FileActions& actions) {
  std::vector<std::string> arguments = options_.arguments;
  arguments.insert(arguments.begin(), launchPath());
  for (const std::string& argument : arguments) {
    if (argument.find('\0') != std::string::npos) refuse(launchPath(), EINVAL);
  }
  std::vector<std::string> environment = childEnvironment(environ, ::geteuid() == 0);
  const SpawnAttributes attributes;
  pid_t child = 0;
  const int reason = ::posix_spawn(&child, executable_.c_str(), actions.get(), attributes.get(),
                                   pointersTo(arguments).data(), pointersTo(environment).data());
  if (reason != 0) refuse(launchPath(), reason);
  return child;
}

/// A child that cannot be watched must not run on unseen.
void LinuxSubprocess::watch(pid_t child) {
  const std::scoped_lock lock(mutex_);
  pidfd_ = aboveStandardStreams(openProcess(child));
  if (pidfd_) return;
  const int reason = errno;
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  refuse(launchPath(), reason);
}

void LinuxSubprocess::launch() {
  keepExitStatuses();
  FileActions actions;
  const UniqueDescriptor input = connect(actions, options_.standardInput, STDIN_FILENO);
  const UniqueDescriptor output = connect(actions, options_.standardOutput, STDOUT_FILENO);
  const UniqueDescriptor error = connect(actions, options_.standardError, STDERR_FILENO);
  actions.closeTheRest();
  watch(spawn(actions));
}

bool LinuxSubprocess::isRunning() {
  const std::scoped_lock lock(mutex_);
  if (!pidfd_ || status_) return false;
  siginfo_t result{};
  if (::waitid(P_PIDFD, static_cast<id_t>(pidfd_.get()), &result, WEXITED | WNOHANG) != 0) {
    status_ = -1;
  } else if (result.si_pid != 0) {
    status_ = result.si_status;
  }
  return !status_;
}

void LinuxSubprocess::blockUntilReadable(int descriptor) {
  if (mainThread_.isCurrent()) {
    mainThread_.serveUntilReadable(descriptor, std::nullopt);
    return;
  }
  pollfd watched{descriptor, POLLIN, 0};
  while (::poll(&watched, 1, -1) < 0 && errno == EINTR) {
  }
}

void LinuxSubprocess::waitUntilExit() {
  // The pidfd is readable once the child has ended, and stays open as long as this object.
  while (isRunning()) blockUntilReadable(pidfd_.get());
}

int LinuxSubprocess::terminationStatus() {
  if (isRunning()) {
    throw foundation::Exception(foundation::kInvalidArgumentException, launchPath() + " is still running");
  }
  const std::scoped_lock lock(mutex_);
  return status_.value_or(-1);
}

void LinuxSubprocess::terminate() {
  const std::scoped_lock lock(mutex_);
  if (pidfd_) sendSignal(pidfd_, SIGTERM);
}

std::string LinuxSubprocess::readFrom(const UniqueDescriptor& pipe) {
  if (!pipe) return {};
  blockUntilReadable(pipe.get());
  std::string bytes(kReadSize, '\0');
  ssize_t length = -1;
  do {
    length = ::read(pipe.get(), bytes.data(), bytes.size());
  } while (length < 0 && errno == EINTR);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return bytes;
}

/// A regular file, or a folder that may be searched.
bool mayBeExecuted(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) &&
         ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

bool hasEquivalent(const std::string& path) {
  return path == "/usr/sbin/scutil" || path == kOpener || path == "/usr/sbin/chown" ||
         path == "/usr/bin/ditto";
}

bool isSymbolicLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

std::string LinuxSubprocesses::executableFor(const std::string& path) {
  if (!hasEquivalent(path)) return path;
  std::string own = root_ + path;
  // Desktops link this name to an opener of their own, which does not take the Mac's arguments.
  const bool isAnother = path == kOpener && isSymbolicLink(own);
  if (mayBeExecuted(own) && !isAnother) return own;
  std::string equivalent = foundation::appendingPathComponent(
      mainBundle_.path(), "Contents/SharedSupport/" + foundation::lastPathComponent(path));
  return mayBeExecuted(equivalent) ? equivalent : own;
}

std::shared_ptr<Subprocess> LinuxSubprocesses::create(SubprocessOptions options) {
  std::string executable = executableFor(options.launchPath);
  return std::make_shared<LinuxSubprocess>(std::move(options), std::move(executable), mainThread_);
}

bool LinuxSubprocesses::isExecutableFile(const std::string& path) {
  return mayBeExecuted(executableFor(path));
}

}  // namespace platform
