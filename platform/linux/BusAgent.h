#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/PropertyList.h"
#include "platform/linux/BusFrames.h"

namespace platform {

class BusAgentLink;
class ReportSink;

/// Where the agent lies and which buses it tries; what is empty or absent is the system's own.
struct BusAgentOptions {
  std::string program = {};                    ///< else Contents/SharedSupport/busagent of the main bundle
  std::string runtimeFolder = "/run/user";     ///< <runtimeFolder>/<uid>/bus is an account's session bus
  std::optional<std::string> sessionBus = {};  ///< else $DBUS_SESSION_BUS_ADDRESS
  std::optional<std::string> systemBus = {};   ///< else $DBUS_SYSTEM_BUS_ADDRESS, else the well-known socket
  bool searchesProcesses = true;  ///< as root: ask the console user's processes for their session bus
};

/// This program's side of its bus agent: a small child, started when there is first something to say, which
/// alone speaks D-Bus. The program itself links no D-Bus library, so that its start stays fast, and no
/// process that runs as root talks to a bus that a user controls.
///
/// Which bus:
/// - as root with somebody at the console: the agent gives up root for that account before it connects (its
///   groups and ids, no new privileges), then takes <runtimeFolder>/<uid>/bus, else the address that the
///   oldest of the account's processes names in its environment, else the system bus;
/// - as root with nobody at the console (or a greeter, "loginwindow"): the system bus, still as root, so that
///   a listener can tell who speaks. Its default policy lets everybody send and hear signals;
/// - otherwise: $DBUS_SESSION_BUS_ADDRESS, else <runtimeFolder>/<uid>/bus, else the system bus.
/// The console user is looked up for each request; when it has changed, another agent takes over. The
/// environment is read as secure_getenv(3) does, and the agent's own is empty.
///
/// A request takes at most 1 second in all, start of the agent included. An agent that has not answered by
/// then is killed. No agent, no bus and no answer look alike: there is no report.
///
/// The agent ends when this object goes or the program ends, except that it stays up to 60 seconds for a
/// notification that is still on the screen. It inherits no descriptor but its socket, and leaves no zombie.
/// All functions may be called from any thread.
class BusAgent {
 public:
  using ReportHandler = std::function<void(const bus::Report&)>;

  explicit BusAgent(BusAgentOptions options = {});
  ~BusAgent();
  BusAgent(const BusAgent&) = delete;
  BusAgent& operator=(const BusAgent&) = delete;

  /// Has the agent do something. nullopt when there is no bus, or no answer in time.
  [[nodiscard]] std::optional<bus::Report> ask(bus::RequestKind kind, const foundation::PropertyList& fields);

  /// Who hears reports that answer no request. Called on a thread of this object, which reads nothing else
  /// meanwhile: it must not block and not ask.
  void setReportHandler(ReportHandler handler);

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  /// A request on its way, and the agent that has it.
  struct Handover {
    std::shared_ptr<BusAgentLink> link;
    std::uint32_t number = 0;
  };
  class Turn;

  [[nodiscard]] Handover handOver(bus::Request request, Deadline deadline);
  [[nodiscard]] std::shared_ptr<BusAgentLink> usableLink(const std::optional<std::string>& account);
  [[nodiscard]] std::vector<std::string> command(const std::optional<std::string>& account) const;

  const BusAgentOptions options_;
  const std::shared_ptr<ReportSink> sink_;
  std::mutex mutex_;
  std::condition_variable turnEnded_;
  bool isTaken_ = false;  // one thread at a time starts the agent and writes to it; it owns what follows
  std::shared_ptr<BusAgentLink> link_;
  std::optional<std::string> linkAccount_;
  std::uint32_t lastNumber_ = 0;
};

}  // namespace platform
