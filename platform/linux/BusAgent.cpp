#include "platform/linux/BusAgent.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "platform/Platform.h"
#include "platform/linux/BusAgentLink.h"

namespace platform {

namespace {

constexpr std::chrono::seconds kLimit{1};

/// A variable of the environment, unless the program has been given rights that its caller does not have.
std::optional<std::string> variable(const char* name) {
  const char* value = ::secure_getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

/// Whose bus root asks for: nullopt for its own (it sits at the console itself, or this is not root), "" for
/// nobody's.
std::optional<std::string> consoleAccount() {
  if (::geteuid() != 0) return std::nullopt;
  auto user = current().usersAndFolders.consoleUser();
  if (user == "root") return std::nullopt;
  if (!user || user == "loginwindow") return "";
  return user;
}

std::chrono::milliseconds timeUntil(std::chrono::steady_clock::time_point deadline) {
  return std::chrono::floor<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
}

}  // namespace

/// The right to start the agent and to write to it; held by one thread at a time.
class BusAgent::Turn {
 public:
  Turn(BusAgent& agent, Deadline deadline) : agent_(agent) {
    std::unique_lock lock(agent_.mutex_);
    isHeld_ = agent_.turnEnded_.wait_until(lock, deadline, [&] { return !agent_.isTaken_; });
    if (isHeld_) agent_.isTaken_ = true;
  }
  ~Turn() {
    if (!isHeld_) return;
    {
      const std::scoped_lock lock(agent_.mutex_);
      agent_.isTaken_ = false;
    }
    agent_.turnEnded_.notify_one();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  [[nodiscard]] bool isHeld() const { return isHeld_; }

 private:
  BusAgent& agent_;
  bool isHeld_ = false;
};

BusAgent::BusAgent(BusAgentOptions options)
    : options_(std::move(options)), sink_(std::make_shared<ReportSink>()) {}

BusAgent::~BusAgent() {
  sink_->setHandler({});
  if (link_) link_->close();
}

void BusAgent::setReportHandler(ReportHandler handler) {
  sink_->setHandler(std::move(handler));
}

std::optional<bus::Report> BusAgent::ask(bus::RequestKind kind, const foundation::PropertyList& fields) {
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  const auto [link, number] = handOver({kind, 0, {}, fields}, deadline);
  if (!link) return std::nullopt;
  auto report = link->answer(number, deadline);
  if (!report) link->abandon();
  return report;
}

BusAgent::Handover BusAgent::handOver(bus::Request request, Deadline deadline) {
  const Turn turn(*this, deadline);
  if (!turn.isHeld()) return {};
  const auto account = consoleAccount();
  // The agent at hand may have lost its bus since it was last used: that one is replaced, once. A request
  // that was taken whole is never sent again, so that nothing is posted twice.
  for (int attempt = 0; attempt < 2; ++attempt) {
    auto link = usableLink(account);
    if (!link) return {};
    request.number = ++lastNumber_;
    request.timeLeft = timeUntil(deadline);
    const std::string frame = bus::encoded(request);
    if (frame.size() > bus::kLongestRequest) return {};
    if (link->send(request.number, frame, deadline)) return {std::move(link), request.number};
    link->abandon();
    link_.reset();
  }
  return {};
}

std::shared_ptr<BusAgentLink> BusAgent::usableLink(const std::optional<std::string>& account) {
  if (link_ && linkAccount_ == account && link_->isOpen()) return link_;
  if (link_) link_->close();
  link_ = BusAgentLink::start(command(account), sink_);
  linkAccount_ = account;
  return link_;
}

std::vector<std::string> BusAgent::command(const std::optional<std::string>& account) const {
  const std::string program = options_.program.empty()
                                  ? current().mainBundle.path() + "/Contents/SharedSupport/busagent"
                                  : options_.program;
  std::vector<std::string> command = {program};
  const auto add = [&](const char* option, const std::string& value) {
    command.insert(command.end(), {option, value});
  };
  const bool isNobody = account && account->empty();
  if (account && !isNobody) {
    add("--account", *account);
    if (options_.searchesProcesses) command.emplace_back("--search-processes");
  }
  if (!account) {
    const auto session = options_.sessionBus ? options_.sessionBus : variable("DBUS_SESSION_BUS_ADDRESS");
    if (session) add("--session-bus", *session);
  }
  if (!isNobody) add("--runtime-folder", options_.runtimeFolder);
  const auto system = options_.systemBus ? options_.systemBus : variable("DBUS_SYSTEM_BUS_ADDRESS");
  add("--system-bus", system.value_or("unix:path=/run/dbus/system_bus_socket"));
  return command;
}

}  // namespace platform
