#include "platform/linux/busagent/Buses.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

namespace busagent {

namespace {

constexpr std::streamsize kLongestEnvironment = 1 << 20;

std::vector<int> ownProcesses() {
  std::vector<int> processes;
  std::error_code failure;
  for (std::filesystem::directory_iterator entry("/proc", failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().filename();
    int process = 0;
    const auto [rest, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (error != std::errc() || rest != name.data() + name.size()) continue;
    struct stat status {};
    if (::stat(entry->path().c_str(), &status) == 0 && status.st_uid == ::geteuid())
      processes.push_back(process);
  }
  std::sort(processes.begin(), processes.end());
  return processes;
}

std::string sessionBusOf(int process) {
  constexpr std::string_view variable = "DBUS_SESSION_BUS_ADDRESS=";
  std::ifstream environment("/proc/" + std::to_string(process) + "/environ", std::ios::binary);
  std::string bytes(kLongestEnvironment, '\0');
  environment.read(bytes.data(), kLongestEnvironment);
  bytes.resize(static_cast<std::size_t>(environment.gcount()));
  bytes.insert(0, 1, '\0');
  const auto at = bytes.find(std::string(1, '\0').append(variable));
  if (at == std::string::npos) return "";
  std::string address = bytes.c_str() + at + 1 + variable.size();  // up to the variable's own NUL
  return address.starts_with("unix:") ? address : "";
}

std::unique_ptr<sdbus::IConnection> connectTo(const std::string& address) try {
  if (address.empty()) return nullptr;
  return sdbus::createSessionBusConnectionWithAddress(address);
} catch (const sdbus::Error&) {
  return nullptr;
}

std::string runtimeBus(const std::string& folder) {
  if (folder.empty()) return "";
  return "unix:path=" + folder + "/" + std::to_string(::geteuid()) + "/bus";
}

}  // namespace

std::string sessionBusOfProcesses() {
  for (const int process : ownProcesses()) {
    if (auto address = sessionBusOf(process); !address.empty()) return address;
  }
  return "";
}

std::optional<Connection> connectToFirst(const Buses& buses) {
  if (auto bus = connectTo(buses.sessionBus)) return Connection{std::move(bus), false};
  if (auto bus = connectTo(runtimeBus(buses.runtimeFolder))) return Connection{std::move(bus), false};
  if (buses.searchesProcesses) {
    if (auto bus = connectTo(sessionBusOfProcesses())) return Connection{std::move(bus), false};
  }
  if (auto bus = connectTo(buses.systemBus)) return Connection{std::move(bus), true};
  return std::nullopt;
}

}  // namespace busagent
