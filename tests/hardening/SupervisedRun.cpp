#include "tests/hardening/SupervisedRun.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "platform/posix/UniqueDescriptor.h"

namespace hardening {
namespace {

using platform::UniqueDescriptor;

constexpr auto kUntold = std::to_array<unsigned>({SYS_read,
                                                  SYS_write,
                                                  SYS_close,
                                                  SYS_mmap,
                                                  SYS_munmap,
                                                  SYS_mprotect,
                                                  SYS_brk,
                                                  SYS_fstat,
                                                  SYS_lseek,
                                                  SYS_rt_sigaction,
                                                  SYS_fcntl,
                                                  SYS_rt_sigprocmask,
                                                  SYS_rt_sigreturn,
                                                  SYS_futex,
                                                  SYS_getrandom,
                                                  SYS_prlimit64,
                                                  SYS_umask,
                                                  SYS_set_tid_address,
                                                  SYS_set_robust_list,
                                                  SYS_rseq,
                                                  SYS_getpid,
                                                  SYS_geteuid,
                                                  SYS_getegid,
                                                  SYS_dup,
                                                  SYS_clock_nanosleep,
                                                  SYS_setitimer,
                                                  SYS_restart_syscall,
                                                  SYS_fstatfs,
                                                  SYS_socket,
                                                  SYS_connect,
                                                  SYS_getgroups,
                                                  SYS_setgroups,
                                                  SYS_setfsuid,
                                                  SYS_setfsgid});

sock_filter step(unsigned code, unsigned value, unsigned char ifSo = 0, unsigned char ifNot = 0) {
  return {static_cast<unsigned short>(code), ifSo, ifNot, value};
}

/// newfstatat(2) is told by its flags.
void addLooks(std::vector<sock_filter>& steps) {
  constexpr unsigned kFlags = offsetof(seccomp_data, args) + 3 * sizeof(std::uint64_t);  // the lower half
  steps.push_back(step(BPF_JMP | BPF_JEQ | BPF_K, SYS_newfstatat, 0, 4));
  steps.push_back(step(BPF_LD | BPF_W | BPF_ABS, kFlags));
  steps.push_back(step(BPF_JMP | BPF_JSET | BPF_K, AT_SYMLINK_NOFOLLOW, 0, 1));
  steps.push_back(step(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  steps.push_back(step(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
}

/// A descriptor that tells this process's system calls from here on: seccomp_unotify(2).
int tellCalls(const std::vector<unsigned>& only) {
  std::vector<unsigned> named = only;
  if (only.empty()) named.assign(kUntold.begin(), kUntold.end());
  // Held up there until the listener, which ends with the exec, has been fetched.
  if (!only.empty()) named.push_back(SYS_execve);
  const unsigned ifNamed = only.empty() ? SECCOMP_RET_ALLOW : SECCOMP_RET_USER_NOTIF;
  const unsigned otherwise = only.empty() ? SECCOMP_RET_USER_NOTIF : SECCOMP_RET_ALLOW;
  std::vector<sock_filter> steps = {step(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  if (only.empty()) addLooks(steps);
  for (const unsigned call : named) {
    steps.push_back(step(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    steps.push_back(step(BPF_RET | BPF_K, ifNamed));
  }
  steps.push_back(step(BPF_RET | BPF_K, otherwise));
  const sock_fprog program{static_cast<unsigned short>(steps.size()), steps.data()};
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

/// In the child. The number that the listener will have goes through the pipe beforehand: afterwards every
/// call waits.
void becomeSupervised(int pipe, const std::vector<unsigned>& only) {
  const int number = ::dup(pipe);
  ::close(number);
  if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(126);
  if (tellCalls(only) != number) ::_exit(126);
}

UniqueDescriptor listenerOf(pid_t child, int pipe) {
  int number = -1;
  if (::read(pipe, &number, sizeof number) != sizeof number) return {};
  const UniqueDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  while (true) {
    UniqueDescriptor listener(static_cast<int>(::syscall(SYS_pidfd_getfd, process.get(), number, 0)));
    if (listener || errno != EBADF) return listener;
  }
}

class Supervision {
 public:
  Supervision(const UniqueDescriptor& listener, const OnCall& onCall)
      : listener_(listener), onCall_(onCall) {}

  /// Until the process is gone.
  int run() {
    pollfd wait{listener_.get(), POLLIN, 0};
    while (::poll(&wait, 1, -1) >= 0 && (wait.revents & POLLIN) != 0) answerNext();
    return index_;
  }

 private:
  void answerNext() {
    seccomp_notif asked{};
    if (::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) return;
    seccomp_notif_resp answer{};
    answer.id = asked.id;
    const int wish = decide(static_cast<pid_t>(asked.pid), asked.data.nr);
    if (wish == kKill) ::kill(static_cast<pid_t>(asked.pid), SIGKILL);
    if (wish == kProceed) answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    if (wish > 0) answer.error = -wish;
    if (wish != kKill) ::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer);
  }

  int decide(pid_t process, int number) {
    if (number == SYS_close_range || number == SYS_statx || number == SYS_getppid) isPrepared_ = true;
    return isPrepared_ ? onCall_(Call{process, number, ++index_}) : kProceed;
  }

  const UniqueDescriptor& listener_;
  const OnCall& onCall_;
  bool isPrepared_ = false;
  int index_ = 0;
};

std::string textOf(int file) {
  std::string text(1U << 20U, '\0');
  const ssize_t length = ::pread(file, text.data(), text.size(), 0);
  text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return text;
}

[[noreturn]] void become(std::vector<std::string>& command, const std::function<void()>& inChild, int errors,
                         int pipe, const std::vector<unsigned>& only) {
  std::vector<char*> values;
  for (std::string& value : command) values.push_back(value.data());
  values.push_back(nullptr);
  ::dup2(errors, STDERR_FILENO);
  // A program that must not start its life with a parent's dispositions of a test program.
  ::signal(SIGPIPE, SIG_DFL);
  if (inChild) inChild();
  if (pipe >= 0) becomeSupervised(pipe, only);
  ::execv(values[0], values.data());
  ::_exit(127);
}

}  // namespace

std::string processFile(pid_t process, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(process) + "/" + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool resolvesNames(int call) {
  constexpr auto kOthers = std::to_array<int>(
      {SYS_close_range, SYS_chdir, SYS_pread64, SYS_pwrite64, SYS_copy_file_range, SYS_ftruncate, SYS_fsync,
       SYS_syncfs, SYS_fchmod, SYS_fchown, SYS_fgetxattr, SYS_flistxattr, SYS_fsetxattr, SYS_fremovexattr,
       SYS_fadvise64, SYS_flock, SYS_ioctl, SYS_exit_group});
  return std::find(kOthers.begin(), kOthers.end(), call) == kOthers.end();
}

bool mayFail(int call) {
  return call != SYS_close_range && call != SYS_exit_group && call != SYS_exit;
}

bool changes(int call) {
  constexpr auto kChanging =
      std::to_array<int>({SYS_mkdirat, SYS_renameat, SYS_renameat2, SYS_linkat, SYS_pwrite64,
                          SYS_copy_file_range, SYS_ftruncate, SYS_fsync, SYS_syncfs, SYS_fsetxattr,
                          SYS_fchmod, SYS_fchown, SYS_fchownat, SYS_unlinkat, SYS_utimensat});
  return std::find(kChanging.begin(), kChanging.end(), call) != kChanging.end();
}

Finished run(std::vector<std::string> command, const std::function<void()>& inChild, const OnCall& onCall,
             const std::vector<unsigned>& only) {
  const UniqueDescriptor errors(::memfd_create("errors", MFD_CLOEXEC));
  std::array<int, 2> ends{-1, -1};
  if (!errors || ::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no descriptors");
  const UniqueDescriptor reading(ends[0]);
  UniqueDescriptor writing(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) become(command, inChild, errors.get(), onCall ? writing.get() : -1, only);
  writing.reset();
  Finished finished;
  if (onCall) {
    const UniqueDescriptor listener = listenerOf(child, reading.get());
    if (!listener) throw std::runtime_error("the system calls of a child cannot be watched");
    finished.calls = Supervision(listener, onCall).run();
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status)) finished.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) finished.signal = WTERMSIG(status);
  finished.errors = textOf(errors.get());
  // Its exit status may be that of a failure which the test allows.
  if (finished.errors.find("Sanitizer: ") != std::string::npos) ADD_FAILURE() << finished.errors;
  return finished;
}

int failEach(const std::vector<int>& calls, bool (*concerns)(int call), int reason,
             const std::function<void(const OnCall&)>& attempt) {
  int failed = 0;
  for (std::size_t i = 0; i < calls.size() && !::testing::Test::HasFailure(); ++i) {
    if (!concerns(calls[i])) continue;
    const int index = static_cast<int>(i) + 1;
    SCOPED_TRACE("call " + std::to_string(index) + ", number " + std::to_string(calls[i]));
    attempt([&](const Call& now) { return now.index == index ? reason : kProceed; });
    ++failed;
  }
  return failed;
}

}  // namespace hardening
