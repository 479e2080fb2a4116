#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <memory>
#include <optional>
#include <string>

namespace busagent {

/// Which buses there are to try, in this order; what is empty is left out.
struct Buses {
  std::string sessionBus = {};     ///< an address
  std::string runtimeFolder = {};  ///< <runtimeFolder>/<this process's uid>/bus is a session bus
  bool searchesProcesses = false;  ///< the address in the environment of this account's oldest process
  std::string systemBus = {};      ///< an address
};

/// A connection to a bus.
struct Connection {
  std::unique_ptr<sdbus::IConnection> bus;
  bool isSystemBus = false;
};

/// The first of the buses that lets this process in; nullopt when none does. Blocks as long as a bus takes.
[[nodiscard]] std::optional<Connection> connectToFirst(const Buses& buses);

/// The address in DBUS_SESSION_BUS_ADDRESS of the oldest process of this account that has one of the form
/// "unix:..."; "" when there is none. Other forms may start programs and are not taken from there.
[[nodiscard]] std::string sessionBusOfProcesses();

}  // namespace busagent
