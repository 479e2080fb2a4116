#include "platform/posix/SystemLog.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

/// syslog(3): LOG_USER.
constexpr int kFacility = 8;

UniqueDescriptor connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) return {};
  path.copy(address.sun_path, path.size());
  UniqueDescriptor log(socket(AF_UNIX, SOCK_DGRAM, 0));
  if (!log || fcntl(log.get(), F_SETFD, FD_CLOEXEC) != 0 || fcntl(log.get(), F_SETFL, O_NONBLOCK) != 0)
    return {};
  if (connect(log.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return {};
  return log;
}

/// "Jan  1 10:00:00", local time. In English: a tool never leaves the C locale.
std::string stamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::array<char, 32> text{};
  if (localtime_r(&now, &local) == nullptr) return "";
  return {text.data(), std::strftime(text.data(), text.size(), "%b %e %H:%M:%S", &local)};
}

}  // namespace

void writeToSystemLog(const std::string& socket, LogLevel level, std::string_view tool,
                      std::string_view line) {
  const UniqueDescriptor log = connectTo(socket);
  if (!log) return;
  std::string text = "<";
  text.append(std::to_string(kFacility | static_cast<int>(level))).append(">").append(stamp()).append(" ");
  text.append(tool).append("[").append(std::to_string(getpid())).append("]: ").append(line);
  text.resize(std::min(text.size(), kLongestLogLine));
  send(log.get(), text.data(), text.size(), 0);
}

}  // namespace platform
