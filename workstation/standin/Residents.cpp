#include "workstation/standin/Residents.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "workstation/ArgumentVector.h"
#include "workstation/Layout.h"
#include "workstation/standin/Knowledge.h"

namespace workstation::standin {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds readyPatience{5000};
constexpr milliseconds endPatience{2000};
constexpr milliseconds pollInterval{5};

void rest(milliseconds time) {
  ::poll(nullptr, 0, static_cast<int>(time.count()));
}

bool runs(pid_t process, const std::string& executable) {
  const auto link = "/proc/" + std::to_string(process) + "/exe";
  std::array<char, PATH_MAX> target{};
  const auto length = ::readlink(link.c_str(), target.data(), target.size());
  return length > 0 && std::string_view(target.data(), static_cast<std::size_t>(length)) == executable;
}

std::vector<pid_t> processesOf(const std::string& executable) {
  std::vector<pid_t> found;
  DIR* folder = ::opendir("/proc");
  if (folder == nullptr) return found;
  while (const dirent* entry = ::readdir(folder)) {
    const auto process =
        static_cast<pid_t>(std::strtol(static_cast<const char*>(entry->d_name), nullptr, 10));
    if (process > 0 && process != ::getpid() && runs(process, executable)) found.push_back(process);
  }
  ::closedir(folder);
  return found;
}

bool waitUntilEnded(const std::string& executable) {
  const auto limit = steady_clock::now() + endPatience;
  while (isRunning(executable)) {
    if (steady_clock::now() > limit) return false;
    rest(pollInterval);
  }
  return true;
}

void signalAll(const std::string& executable, int signal) {
  for (const auto process : processesOf(executable)) ::kill(process, signal);
}

void pointStandardStreamsAtNull() {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
}

/// Runs in a child: leaves the caller's session twice over, so that process 1 inherits what is started.
[[noreturn]] void becomeResident(char* const* arguments) {
  ::setsid();
  if (::fork() != 0) ::_exit(0);
  pointStandardStreamsAtNull();
  ::execv(arguments[0], arguments);
  ::_exit(127);
}

/// Waits for the byte that a resident writes; its end without one means that it could not be started.
bool sawReadiness(int descriptor) {
  pollfd waited{descriptor, POLLIN, 0};
  if (::poll(&waited, 1, static_cast<int>(readyPatience.count())) <= 0) return false;
  char byte = 0;
  return ::read(descriptor, &byte, 1) == 1;
}

int takeReadyDescriptor() {
  const char* text = ::getenv(readyDescriptorVariable);
  if (text == nullptr) return -1;
  const int descriptor = static_cast<int>(std::strtol(text, nullptr, 10));
  ::unsetenv(readyDescriptorVariable);
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);  // companions have one of their own
  return descriptor;
}

void sayReady(int descriptor) {
  if (descriptor >= 0 && ::write(descriptor, "!", 1) == 1) ::close(descriptor);
}

void registerResident() {
  const auto file = std::string(residentsFolder) + '/' + std::to_string(::getpid());
  ::close(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
}

/// The queue service belongs to the daemon, which brings it along.
void startCompanions() {
  constexpr std::string_view daemon = "/qmasterd";
  const auto& path = executablePath();
  if (!path.ends_with(daemon)) return;
  const auto queue = path.substr(0, path.size() - daemon.size()) + "/qmasterqd";
  if (::access(queue.c_str(), X_OK) == 0 && !isRunning(queue)) startResident(queue);
}

sigset_t requestsToQuit() {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&set, signal);
  return set;
}

void waitForRequestToQuit(const sigset_t& requests) {
  while (true) {
    siginfo_t info{};
    if (::sigwaitinfo(&requests, &info) < 0) continue;
    const std::vector<std::string> words{::sigabbrev_np(info.si_signo), std::to_string(info.si_uid)};
    const auto taken = manner();
    record(taken == "ignores" ? "ignored" : "quit", words);
    if (taken == "ignores") continue;
    rest(milliseconds(std::strtol(taken.c_str(), nullptr, 10)));
    return;
  }
}

}  // namespace

bool startResident(const std::string& executable, const std::vector<std::string>& arguments) {
  std::array<int, 2> ready{};
  if (::pipe2(ready.data(), O_CLOEXEC) != 0) return false;
  std::vector<std::string> words{executable};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const auto pointers = argumentVector(words);
  const int handedOn = ::fcntl(ready[1], F_DUPFD, 10);  // this one stays open across the start
  ::setenv(readyDescriptorVariable, std::to_string(handedOn).c_str(), 1);
  const pid_t child = ::fork();
  if (child == 0) becomeResident(pointers.data());
  ::unsetenv(readyDescriptorVariable);
  ::close(handedOn);
  ::close(ready[1]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  const bool started = child > 0 && sawReadiness(ready[0]);
  ::close(ready[0]);
  return started;
}

bool endResidents(const std::string& executable) {
  signalAll(executable, SIGTERM);
  if (waitUntilEnded(executable)) return true;
  signalAll(executable, SIGKILL);
  return waitUntilEnded(executable);
}

bool isRunning(const std::string& executable) {
  return !processesOf(executable).empty();
}

int liveAsResident(const std::vector<std::string>& arguments) {
  const int ready = takeReadyDescriptor();
  const auto requests = requestsToQuit();
  ::sigprocmask(SIG_BLOCK, &requests, nullptr);
  ::umask(0);
  record("start", arguments);
  registerResident();
  startCompanions();
  sayReady(ready);
  waitForRequestToQuit(requests);
  return 0;
}

}  // namespace workstation::standin
