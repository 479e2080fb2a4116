#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/BusFrames.h"
#include "platform/linux/busagent/Buses.h"
#include "platform/linux/busagent/Calls.h"
#include "platform/linux/busagent/NotificationServer.h"

namespace busagent {

/// Carries requests from the program to the bus, and reports back. One thread, one loop; no request keeps
/// another waiting.
class Agent {
 public:
  /// REQUIRES `descriptor` to be the program's socket.
  Agent(Connection connection, int descriptor);

  /// Serves until the program has gone and nothing is under way or on the screen, at most 60 seconds after it
  /// has gone. Throws sdbus::Error when the bus goes.
  void run();

 private:
  [[nodiscard]] bool isFinished() const;
  void waitForWork();
  void readRequests();
  void programHasGone();

  void carryOut(const platform::bus::Request& request);
  void postSignal(const platform::bus::Request& request);
  void notify(const platform::bus::Request& request);
  void findClient(const platform::bus::Request& request);
  void askClient(const platform::bus::Request& request);
  void clientDidNotAnswer(const platform::bus::Request& request, const sdbus::Error& error);
  void messageClient(const platform::bus::Request& request);

  /// Answers so when the client is still on the bus, else that it has gone.
  void answerByPresence(const platform::bus::Request& request, platform::bus::Outcome whenThere);

  void answer(std::uint32_t number, platform::bus::Outcome outcome, const std::string& text = {});
  void write(const platform::bus::Report& report);

  Connection connection_;
  int descriptor_;
  Calls calls_;
  std::unique_ptr<sdbus::IObject> poster_;
  NotificationServer notifications_;
  platform::bus::FrameReader frames_{platform::bus::kLongestRequest};
  std::optional<std::chrono::steady_clock::time_point> lastMoment_;  // set once the program has gone
};

}  // namespace busagent
