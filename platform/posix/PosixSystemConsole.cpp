#include "platform/posix/PosixSystemConsole.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/posix/HeldEntries.h"
#include "platform/posix/ThreadNumber.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// syslog(3): LOG_USER | LOG_NOTICE.
constexpr int kPriority = 13;

/// Standard error, written to without blocking.
///
/// A pipe or terminal is opened once more for it: setting O_NONBLOCK on descriptor 2 itself would set it for
/// every process that shares it. One that cannot be opened again (another user's) is asked for room first,
/// and gets no more at a time than fits then.
class StandardError {
 public:
  StandardError() {
    struct stat status {};
    if (::fstat(STDERR_FILENO, &status) != 0) return;
    canBlock_ = S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode);
    isSocket_ = S_ISSOCK(status.st_mode);
    if (!canBlock_) return;
    reopened_ = openHeld(STDERR_FILENO, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  }

  /// As write(2); EAGAIN when it would block.
  [[nodiscard]] ssize_t write(std::string_view bytes) const {
    if (reopened_) return ::write(reopened_.get(), bytes.data(), bytes.size());
    if (isSocket_) return ::send(STDERR_FILENO, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (!canBlock_) return ::write(STDERR_FILENO, bytes.data(), bytes.size());
    if (!hasRoom(milliseconds(0))) {
      errno = EAGAIN;
      return -1;
    }
    return ::write(STDERR_FILENO, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
  }

  /// Waits for room; answers whether there is some.
  [[nodiscard]] static bool hasRoom(milliseconds patience) {
    pollfd watched{STDERR_FILENO, POLLOUT, 0};
    return ::poll(&watched, 1, static_cast<int>(patience.count())) != 0;
  }

 private:
  bool canBlock_ = false;
  bool isSocket_ = false;
  UniqueDescriptor reopened_;
};

milliseconds timeUntil(steady_clock::time_point deadline) {
  return std::max(std::chrono::ceil<milliseconds>(deadline - steady_clock::now()), milliseconds(0));
}

std::string octal(unsigned char letter) {
  const auto digit = [letter](unsigned shift) { return static_cast<char>('0' + ((letter >> shift) & 7U)); };
  return {'#', digit(6), digit(3), digit(0)};
}

std::string withoutControlCharacters(const std::string& text) {
  std::string harmless;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto letter = static_cast<unsigned char>(text[at]);
    // U+0080 to U+009F are control characters to a terminal as well; in UTF-8 their first byte is C2.
    const bool secondByteIsControl = at > 0 && text[at - 1] == '\xC2' && letter >= 0x80 && letter < 0xA0;
    if (letter < 0x20 || letter == 0x7F || secondByteIsControl) {
      harmless += octal(letter);
    } else {
      harmless += text[at];
    }
  }
  return harmless;
}

/// A socket to the log, or none.
UniqueDescriptor connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) return {};
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  UniqueDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM, 0));
  if (!socket || ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC) != 0 ||
      ::fcntl(socket.get(), F_SETFL, O_NONBLOCK) != 0) {
    return {};
  }
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return {};
  return socket;
}

/// As syslog(3) stamps its lines: "Jan  1 10:00:00", local time, in English whatever the locale.
std::string logStamp(const foundation::Date& now) {
  constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::size_t month = std::stoul(now.formattedLocally("%m")) - 1;
  return kMonths.at(month) + now.formattedLocally(" %e %H:%M:%S");
}

}  // namespace

void PosixSystemConsole::write(const std::string& message) {
  const foundation::Date now = clock_.now();
  const std::string line = foundation::stringWithFormat(
      "%@ %@[%d:%d] %@\n", now.consoleStamp(), process_.processName(), ::getpid(), threadNumber(), message);
  const std::scoped_lock lock(mutex_);
  writeToStandardError(line);
  sendToSystemLog(message, now);
}

void PosixSystemConsole::writeToStandardError(const std::string& line) {
  const auto deadline = steady_clock::now() + (isStuck_ ? milliseconds(0) : kPatience);
  const StandardError standardError;
  std::string_view rest = line;
  bool gotStuck = false;
  while (!rest.empty() && !gotStuck) {
    const ssize_t written = standardError.write(rest);
    if (written < 0 && errno != EINTR && errno != EAGAIN) return;
    if (written < 0 && errno == EAGAIN) gotStuck = !StandardError::hasRoom(timeUntil(deadline));
    rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  isStuck_ = gotStuck;
}

void PosixSystemConsole::sendToSystemLog(const std::string& message, const foundation::Date& now) {
  const UniqueDescriptor socket = connectTo(systemLog_);
  if (!socket) return;
  std::string line =
      foundation::stringWithFormat("<%d>%@ %@[%d]: %@", kPriority, logStamp(now), process_.processName(),
                                   ::getpid(), withoutControlCharacters(message));
  line.resize(std::min(line.size(), kLongestLogLine));
  ::send(socket.get(), line.data(), line.size(), 0);
}

}  // namespace platform
