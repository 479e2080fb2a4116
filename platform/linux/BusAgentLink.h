#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/BusFrames.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// Passes reports that answer no request on to whoever wants them; shared by all links of one agent.
class ReportSink {
 public:
  using Handler = std::function<void(const bus::Report&)>;
  /// When it returns, the handler before is not running any more and never will.
  void setHandler(Handler handler);
  void deliver(const bus::Report& report);

 private:
  std::mutex mutex_;
  Handler handler_;
};

/// One agent process, from its start to its end. A thread of its own reads what the agent says and waits for
/// its end, so that no zombie is left.
class BusAgentLink {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  /// Starts the program with the arguments, its socket as standard input, no other descriptor but the null
  /// device, an empty environment, in a session of its own, with signals as a new process has them. nullptr
  /// when it cannot be started.
  [[nodiscard]] static std::shared_ptr<BusAgentLink> start(const std::vector<std::string>& command,
                                                           std::shared_ptr<ReportSink> sink);

  BusAgentLink(UniqueDescriptor socket, UniqueDescriptor process, std::shared_ptr<ReportSink> sink);
  BusAgentLink(const BusAgentLink&) = delete;
  BusAgentLink& operator=(const BusAgentLink&) = delete;

  [[nodiscard]] bool isOpen();

  /// Writes the frame of a request; answers whether all of it was taken in time. REQUIRES one sender at a
  /// time.
  [[nodiscard]] bool send(std::uint32_t number, std::string_view frame, Deadline deadline);

  /// Waits for the answer to a request that was sent; nullopt when the agent has ended or the time is over.
  [[nodiscard]] std::optional<bus::Report> answer(std::uint32_t number, Deadline deadline);

  /// Ends the conversation: the agent ends by itself when it has nothing more to do.
  void close();
  /// Ends the conversation and the agent with it, by SIGKILL.
  void abandon();

 private:
  [[nodiscard]] bool write(std::string_view frame, Deadline deadline);
  void serve();
  void read();
  void take(const bus::Report& report);
  void bury();

  const UniqueDescriptor socket_;
  const UniqueDescriptor process_;  ///< its pidfd
  const std::shared_ptr<ReportSink> sink_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = true;
  std::map<std::uint64_t, std::optional<bus::Report>> awaited_;
  bus::FrameReader frames_{bus::kLongestReport};
};

}  // namespace platform
