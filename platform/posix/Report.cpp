#include "platform/posix/Report.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <system_error>

#include "platform/foundation/Text.h"
#include "platform/posix/HeldEntries.h"
#include "platform/posix/SystemLog.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

std::string octal(unsigned char byte) {
  const auto digit = [byte](unsigned shift) { return static_cast<char>('0' + ((byte >> shift) & 7U)); };
  return {'\\', digit(6), digit(3), digit(0)};
}

std::string escapedAscii(char character) {
  switch (character) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      break;
  }
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F ? octal(byte) : std::string(1, character);
}

bool changesTheLine(char32_t code) {
  return code < 0xA0 || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

/// A pipe or terminal opened once more, without blocking: O_NONBLOCK set on the descriptor itself would be
/// set for all that share it. Nothing else is: opening a device can do something.
UniqueDescriptor openedWithoutBlocking(int descriptor) {
  struct stat status {};
  const bool writable = (fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_RDONLY;
  if (!writable || fstat(descriptor, &status) != 0) return {};
  if (!S_ISFIFO(status.st_mode) && isatty(descriptor) == 0) return {};
  return openHeld(descriptor, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    if (static_cast<unsigned char>(text.front()) < 0x80) {
      line += escapedAscii(text.front());
      text.remove_prefix(1);
      continue;
    }
    const foundation::Utf8Character character = foundation::firstCharacter(text);
    const std::size_t length = character.length == 0 ? 1 : character.length;
    const bool plain = character.length > 0 && !changesTheLine(character.code);
    for (std::size_t i = 0; i < length; ++i) {
      line += plain ? std::string(1, text[i]) : octal(static_cast<unsigned char>(text[i]));
    }
    text.remove_prefix(length);
  }
  return line;
}

void Report::failure(std::string_view path, std::string_view reason) {
  anyFailure_ = true;
  say(escaped(path) + ": " + std::string(reason));
}

void Report::moved(std::string_view path, std::string_view place) const {
  writeToSystemLog(systemLog_, LogLevel::info, toolName_, escaped(path) + ": moved to " + escaped(place));
}

void Report::moving(std::string_view path, std::string_view place) const {
  writeToSystemLog(systemLog_, LogLevel::info, toolName_, escaped(path) + ": moving to " + escaped(place));
}

ExitStatus Report::stop(ExitStatus status, std::string_view message) {
  if (status != ExitStatus::done) anyFailure_ = true;
  if (status == ExitStatus::usage) {
    writeLine(std::string(message));
  } else {
    say(std::string(message));
  }
  return status;
}

void Report::say(const std::string& text) {
  writeToSystemLog(systemLog_, LogLevel::warning, toolName_, text);
  writeLine(text);
}

/// The description of an error repeats its path, unescaped: only what follows it is wanted.
std::string Report::reasonOf(const foundation::Error& error) {
  const std::string prefix = error.path + ": ";
  if (!error.path.empty() && error.description.starts_with(prefix)) {
    return error.description.substr(prefix.size());
  }
  return error.description;
}

/// poll(2) answers at once for a descriptor that is closed or broken: then the write says so.
bool Report::hasRoom(std::chrono::milliseconds patience) const {
  pollfd watched{descriptor_, POLLOUT, 0};
  return descriptor_ < 0 || poll(&watched, 1, static_cast<int>(patience.count())) != 0;
}

/// As write(2), EAGAIN where it would block. What could not be opened again gets no more than fits for sure.
ssize_t Report::writeSome(int reopened, std::string_view text) const {
  if (reopened >= 0) return write(reopened, text.data(), text.size());
  if (!hasRoom(std::chrono::milliseconds(0))) {
    errno = EAGAIN;
    return -1;
  }
  return write(descriptor_, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

void Report::writeLine(const std::string& message) {
  using std::chrono::milliseconds;
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + (isStuck_ ? milliseconds(0) : patience_);
  const UniqueDescriptor reopened = openedWithoutBlocking(descriptor_);
  const std::string line = toolName_ + ": " + message + "\n";
  std::string_view rest = line;
  isStuck_ = false;
  while (!rest.empty() && !isStuck_) {
    const ssize_t count = writeSome(reopened.get(), rest);
    if (count < 0 && errno != EINTR && errno != EAGAIN) return;
    if (count < 0 && errno == EAGAIN) {
      const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
      isStuck_ = !hasRoom(std::max(left, milliseconds(0)));
    }
    rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
}

}  // namespace platform
