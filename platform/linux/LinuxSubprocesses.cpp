#include "platform/linux/LinuxSubprocesses.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <optional>

#include "platform/foundation/Exception.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Result.h"
#include "platform/linux/ChildReaper.h"
#include "platform/linux/ProcessDescriptor.h"
#include "platform/linux/SpawnedProgram.h"
#include "platform/posix/ChildEnvironment.h"
#include "platform/posix/ReadableWait.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

constexpr int kPipeSize = 1 << 20;
constexpr std::size_t kReadSize = 64UL << 10;
constexpr const char* kOpener = "/usr/bin/open";
constexpr const char* kOwnerChanger = "/usr/sbin/chown";

[[noreturn]] void refuse(const foundation::Error& error) {
  throw foundation::Exception(foundation::kInvalidArgumentException, error.localizedDescription());
}

Pipe makeLargePipe(const std::string& launchPath) {
  Pipe pipe = makePipe();
  if (!pipe.reading) refuse(foundation::systemError(errno, launchPath));
  ::fcntl(pipe.writing.get(), F_SETPIPE_SZ, kPipeSize);
  return pipe;
}

/// What a child gets for a stream; the end of a pipe is its own to close.
struct ChildStream {
  int descriptor = -1;
  UniqueDescriptor pipeEnd = {};
};

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
  ChildStream connect(Stream kind, int stream);
  void watch(pid_t child);
  std::string readFrom(const UniqueDescriptor& pipe);

  const SubprocessOptions options_;
  const std::string executable_;
  MainThread& mainThread_;
  UniqueDescriptor output_;
  UniqueDescriptor error_;
  std::mutex mutex_;  ///< guards what follows
  UniqueDescriptor pidfd_;
  std::optional<int> status_;
};

OpensOnDesktop opensOnDesktop(const std::string& executable) {
  const std::string name = foundation::lastPathComponent(executable);
  return name == "open" || name == "asuser" ? OpensOnDesktop::yes : OpensOnDesktop::no;
}

/// This process's own end of a pipe becomes output_ or error_; that of the child's input is closed at once.
ChildStream LinuxSubprocess::connect(Stream kind, int stream) {
  if (kind == Stream::inherited) return {ownStream(stream)};
  if (kind == Stream::nullDevice) return {};
  Pipe pipe = makeLargePipe(launchPath());
  if (stream == STDOUT_FILENO) output_ = std::move(pipe.reading);
  if (stream == STDERR_FILENO) error_ = std::move(pipe.reading);
  UniqueDescriptor childsEnd = std::move(stream == STDIN_FILENO ? pipe.reading : pipe.writing);
  const int number = childsEnd.get();
  return {number, std::move(childsEnd)};
}

/// A child that cannot be watched must not run on unseen.
void LinuxSubprocess::watch(pid_t child) {
  const std::scoped_lock lock(mutex_);
  pidfd_ = raisedDescriptor(openProcess(child));
  if (pidfd_) return;
  const int reason = errno;
  ::kill(child, SIGKILL);
  waitForProgram(child);
  refuse(foundation::systemError(reason, launchPath()));
}

void LinuxSubprocess::launch() {
  const ChildStream input = connect(options_.standardInput, STDIN_FILENO);
  const ChildStream output = connect(options_.standardOutput, STDOUT_FILENO);
  const ChildStream error = connect(options_.standardError, STDERR_FILENO);
  ProgramToSpawn program{
      .command = options_.arguments,
      .environment = childEnvironment(environ, ::geteuid() == 0, opensOnDesktop(executable_)),
      .standardInput = input.descriptor,
      .standardOutput = output.descriptor,
      .standardError = error.descriptor,
      .executable = executable_,
      .session = ChildSession::own};
  program.command.insert(program.command.begin(), launchPath());
  const auto child = spawnProgram(program);
  if (!child) refuse(child.error());
  watch(child.value());
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

void LinuxSubprocess::waitUntilExit() {
  // The pidfd is readable once the child has ended, and stays open as long as this object.
  while (isRunning()) waitUntilReadable(mainThread_, pidfd_.get());
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
  waitUntilReadable(mainThread_, pipe.get());
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
  return path == "/usr/sbin/scutil" || path == "/usr/bin/ditto" || path == kOpener || path == kOwnerChanger;
}

bool isSymbolicLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Desktops link the opener's name to one of their own, which does not take the Mac's arguments. Systems that
/// have merged their folders of programs have the general chown at the Mac's path, which follows links that a
/// user has planted.
bool isAnother(const std::string& path, const std::string& own) {
  return path == kOwnerChanger || (path == kOpener && isSymbolicLink(own));
}

}  // namespace

std::string LinuxSubprocesses::executableFor(const std::string& path) {
  if (!hasEquivalent(path)) return path;
  std::string own = root_ + path;
  if (mayBeExecuted(own) && !isAnother(path, own)) return own;
  std::string equivalent = foundation::appendingPathComponent(
      mainBundle_.path(), "Contents/SharedSupport/" + foundation::lastPathComponent(path));
  // What only ever stands in for another program is missing where it is missing.
  return mayBeExecuted(equivalent) || path == kOwnerChanger ? equivalent : own;
}

std::shared_ptr<Subprocess> LinuxSubprocesses::create(SubprocessOptions options) {
  std::string executable = executableFor(options.launchPath);
  return std::make_shared<LinuxSubprocess>(std::move(options), std::move(executable), mainThread_);
}

bool LinuxSubprocesses::isExecutableFile(const std::string& path) {
  return mayBeExecuted(executableFor(path));
}

}  // namespace platform
