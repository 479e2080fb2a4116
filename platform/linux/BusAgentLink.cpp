#include "platform/linux/BusAgentLink.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace platform {

namespace {

/// What a child is started with; freed with the object.
class SpawnSettings {
 public:
  explicit SpawnSettings(int standardInput) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, standardInput, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    posix_spawnattr_setflags(&attributes_,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  }
  ~SpawnSettings() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  [[nodiscard]] const posix_spawn_file_actions_t* actions() const { return &actions_; }
  [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

std::optional<pid_t> spawned(std::vector<std::string> command, int standardInput) {
  const SpawnSettings settings(standardInput);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  char* environment[] = {nullptr};
  pid_t process = 0;
  const int error = posix_spawn(&process, command.front().c_str(), settings.actions(), settings.attributes(),
                                arguments.data(), environment);
  if (error != 0) return std::nullopt;
  return process;
}

/// Keeps signals away from the threads that are started in its scope: they belong to the program's own.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t previous_{};
};

int millisecondsUntil(BusAgentLink::Deadline deadline) {
  const auto left = deadline - std::chrono::steady_clock::now();
  const auto rounded = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::clamp<std::int64_t>(rounded, 0, 60'000));
}

}  // namespace

void ReportSink::setHandler(Handler handler) {
  const std::scoped_lock lock(mutex_);
  handler_ = std::move(handler);
}

void ReportSink::deliver(const bus::Report& report) {
  const std::scoped_lock lock(mutex_);
  if (handler_) handler_(report);
}

std::shared_ptr<BusAgentLink> BusAgentLink::start(const std::vector<std::string>& command,
                                                  std::shared_ptr<ReportSink> sink) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return nullptr;
  UniqueDescriptor ours(ends[0]);
  const UniqueDescriptor theirs(ends[1]);
  const auto process = spawned(command, theirs.get());
  if (!process) return nullptr;
  auto link = std::make_shared<BusAgentLink>(std::move(ours), *process, std::move(sink));
  try {
    const BlockedSignals blocked;
    std::thread([link] { link->serve(); }).detach();
  } catch (const std::system_error&) {  // no thread left for it: then there is no agent either
    link->abandon();
    link->bury();
    return nullptr;
  }
  return link;
}

BusAgentLink::BusAgentLink(UniqueDescriptor socket, pid_t process, std::shared_ptr<ReportSink> sink)
    : socket_(std::move(socket)), process_(process), sink_(std::move(sink)) {}

bool BusAgentLink::isOpen() {
  const std::scoped_lock lock(mutex_);
  return isOpen_;
}

bool BusAgentLink::send(std::uint32_t number, std::string_view frame, Deadline deadline) {
  {
    const std::scoped_lock lock(mutex_);
    awaited_[number] = std::nullopt;
  }
  return write(frame, deadline);
}

bool BusAgentLink::write(std::string_view frame, Deadline deadline) {
  while (!frame.empty()) {
    const ssize_t sent = ::send(socket_.get(), frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      frame.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    if (errno != EAGAIN && errno != EINTR) return false;
    pollfd waited{socket_.get(), POLLOUT, 0};
    const int left = millisecondsUntil(deadline);
    if (left == 0 || ::poll(&waited, 1, left) == 0) return false;
  }
  return true;
}

std::optional<bus::Report> BusAgentLink::answer(std::uint32_t number, Deadline deadline) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline, [&] { return awaited_[number].has_value() || !isOpen_; });
  auto report = awaited_[number];
  awaited_.erase(number);
  return report;
}

void BusAgentLink::close() {
  ::shutdown(socket_.get(), SHUT_RDWR);
}

void BusAgentLink::abandon() {
  {
    const std::scoped_lock lock(mutex_);
    isAbandoned_ = true;
  }
  close();
}

void BusAgentLink::serve() {
  read();
  {
    const std::scoped_lock lock(mutex_);
    isOpen_ = false;
  }
  changed_.notify_all();
  bury();
}

void BusAgentLink::read() {
  std::array<char, 4096> buffer{};
  while (true) {
    const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (count == 0 || (count < 0 && errno != EINTR)) return;
    if (count > 0) frames_.append({buffer.data(), static_cast<std::size_t>(count)});
    while (const auto body = frames_.next()) {
      const auto report = bus::decodedReport(*body);
      if (!report) return abandon();
      take(*report);
    }
    if (frames_.isBroken()) return abandon();
  }
}

void BusAgentLink::take(const bus::Report& report) {
  if (report.kind != bus::ReportKind::answer) return sink_->deliver(report);
  {
    // An answer that nobody waits for any more, or never did, is dropped.
    const std::scoped_lock lock(mutex_);
    const auto found = awaited_.find(report.number);
    if (found == awaited_.end() || found->second) return;
    found->second = report;
  }
  changed_.notify_all();
}

void BusAgentLink::bury() {
  bool mustEnd = false;
  {
    const std::scoped_lock lock(mutex_);
    mustEnd = isAbandoned_;
  }
  // The process cannot have been replaced by another of its number: nobody but this thread waits for it.
  if (mustEnd) ::kill(process_, SIGKILL);
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace platform
