#include "platform/linux/BusAgentLink.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/ProcessDescriptor.h"
#include "platform/posix/BlockedSignals.h"
#include "platform/posix/Pipe.h"
#include "platform/posix/SpawnedProgram.h"

namespace platform {

namespace {

/// The agent's pidfd; empty when it does not run.
UniqueDescriptor startedAgent(const std::vector<std::string>& command, const UniqueDescriptor& socket) {
  const auto child = spawnProgram(
      {.command = command, .environment = {}, .standardInput = socket.get(), .session = ChildSession::own});
  if (!child) return {};
  UniqueDescriptor process = raisedDescriptor(openProcess(child.value()));
  if (!process) endProgram(child.value());  // it could not be ended when it must be
  return process;
}

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
  UniqueDescriptor ours = raisedDescriptor(UniqueDescriptor(ends[0]));
  const UniqueDescriptor theirs = raisedDescriptor(UniqueDescriptor(ends[1]));
  if (!ours || !theirs) return nullptr;
  auto process = startedAgent(command, theirs);
  if (!process) return nullptr;
  auto link = std::make_shared<BusAgentLink>(std::move(ours), std::move(process), std::move(sink));
  try {
    const BlockedSignals guard;
    std::thread([link] { link->serve(); }).detach();
  } catch (const std::system_error&) {  // no thread left for it: then there is no agent either
    link->abandon();
    link->bury();
    return nullptr;
  }
  return link;
}

BusAgentLink::BusAgentLink(UniqueDescriptor socket, UniqueDescriptor process,
                           std::shared_ptr<ReportSink> sink)
    : socket_(std::move(socket)), process_(std::move(process)), sink_(std::move(sink)) {}

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
  close();
  static_cast<void>(sendSignal(process_, SIGKILL));
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
  siginfo_t ignored{};
  while (::waitid(P_PIDFD, static_cast<id_t>(process_.get()), &ignored, WEXITED) < 0 && errno == EINTR) {
  }
}

}  // namespace platform
