#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace support {

/// A display of the test's own: an Xvfb on a free number with a window manager, which $DISPLAY names; both
/// are ended with the object. Throws std::runtime_error where there is none to be had.
class XServer {
 public:
  XServer();
  ~XServer();
  XServer(const XServer&) = delete;
  XServer& operator=(const XServer&) = delete;

  /// "99", and ":99".
  [[nodiscard]] const std::string& number() const { return number_; }
  [[nodiscard]] std::string name() const { return ":" + number_; }

 private:
  std::string number_;
  pid_t server_ = -1;
  pid_t windowManager_ = -1;
};

}  // namespace support
