#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace helpers {

/// A system log that is listened to, at a path of the test's own.
class LogSocket {
 public:
  explicit LogSocket(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::runtime_error("bind " + path);
    }
  }
  ~LogSocket() { close(socket_); }
  LogSocket(const LogSocket&) = delete;
  LogSocket& operator=(const LogSocket&) = delete;

  /// The next line, or "nothing".
  [[nodiscard]] std::string receive() const {
    std::string bytes(1 << 16, '\0');
    const ssize_t length = recv(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    return length < 0 ? "nothing" : bytes.substr(0, static_cast<std::size_t>(length));
  }

 private:
  int socket_;
};

}  // namespace helpers
