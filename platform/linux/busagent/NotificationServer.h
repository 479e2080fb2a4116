#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "platform/foundation/PropertyList.h"
#include "platform/linux/BusFrames.h"
#include "platform/linux/busagent/Calls.h"

namespace busagent {

/// The desktop's notification server, org.freedesktop.Notifications (version 1.2 of that interface).
class NotificationServer {
 public:
  using Settled = std::function<void(platform::bus::ReportKind, std::uint64_t number)>;

  NotificationServer(Calls& calls, Settled settled) : calls_(calls), settled_(std::move(settled)) {}

  /// Shows one ("notification", its number, "title", "description", "priority", "isSticky", "icon"). Nothing
  /// comes back when the server cannot.
  void show(const foundation::PropertyList& fields);

  /// How many are on the screen.
  [[nodiscard]] std::size_t shown() const { return shown_.size(); }

 private:
  void listen();
  void actionInvoked(sdbus::Signal& signal);
  void closed(sdbus::Signal& signal);
  void notify(const foundation::PropertyList& fields);
  void fill(sdbus::MethodCall& call, const foundation::PropertyList& fields) const;
  void appendHints(sdbus::MethodCall& call, const foundation::PropertyList& fields) const;
  std::optional<std::uint64_t> settle(const std::string& sender, std::uint32_t id);

  Calls& calls_;
  Settled settled_;
  bool isListening_ = false;
  std::set<std::string> capabilities_;
  // The server's own unique name goes with its id: one that took over since counts from 1 again.
  std::map<std::pair<std::string, std::uint32_t>, std::uint64_t> shown_;
};

}  // namespace busagent
