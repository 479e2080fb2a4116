#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/PropertyList.h"

/// What the program and its bus agent say to each other over a socket pair. Both come from one build on one
/// machine, so numbers stand in the machine's own byte order.
///
///     frame    length (4 bytes, of what follows), body
///     request  kind (1), number (4), time left in milliseconds (4), property list
///     report   kind (1), number (8), outcome (1), text (the rest)
///
/// The program believes nothing that it reads: the agent runs with the rights of a user who may be hostile.
namespace platform::bus {

/// Longest bodies. A report is small, so that a hostile agent cannot make the program hold much.
inline constexpr std::size_t kLongestRequest = 32U << 20;
inline constexpr std::size_t kLongestReport = 512;

enum class RequestKind : std::uint8_t { postSignal = 1, notify, findClient, askClient, messageClient };

struct Request {
  RequestKind kind = RequestKind::postSignal;
  std::uint32_t number = 0;
  std::chrono::milliseconds timeLeft{0};  ///< within which the report must come
  foundation::PropertyList fields;        ///< a dictionary, by kind
};

enum class ReportKind : std::uint8_t {
  answer = 1,           ///< number: the request's
  notificationClicked,  ///< number: the notification's own
  notificationExpired
};

enum class Outcome : std::uint8_t {
  done = 1,    ///< yes
  absent,      ///< no: nobody has that name, or no such method
  gone,        ///< the client has left the bus
  unanswered,  ///< the client did not answer in time
  failed       ///< the bus refused
};

struct Report {
  ReportKind kind = ReportKind::answer;
  std::uint64_t number = 0;
  Outcome outcome = Outcome::done;
  std::string text;  ///< at most 255 bytes
};

/// A whole frame. Texts in a request are made fit for the bus (busText); what lies more than 16 levels deep,
/// close to where the bus refuses a message, becomes the text of its description.
[[nodiscard]] std::string encoded(const Request& request);
[[nodiscard]] std::string encoded(const Report& report);

/// Reads a body; nullopt when it is not one, whatever its bytes.
[[nodiscard]] std::optional<Request> decodedRequest(std::string_view body);
[[nodiscard]] std::optional<Report> decodedReport(std::string_view body);

/// A text as the bus accepts it: each byte that is not part of a well-formed UTF-8 character, each NUL, and
/// each of Unicode's 66 noncharacters, which libraries refuse, becomes U+FFFD. A text above 16 MiB is cut
/// there, at a character, so that it stays below the 32 MiB that a system bus lets through.
[[nodiscard]] std::string busText(std::string_view text);

/// Cuts a stream of bytes into frames.
class FrameReader {
 public:
  explicit FrameReader(std::size_t longestBody) : longestBody_(longestBody) {}

  void append(std::string_view bytes) { bytes_.append(bytes); }

  /// The next whole body, or nullopt when there is none yet or the stream is broken.
  [[nodiscard]] std::optional<std::string> next();

  /// A frame was announced that is longer than any may be. Nothing is read from then on.
  [[nodiscard]] bool isBroken() const { return broken_; }

 private:
  std::size_t longestBody_;
  std::string bytes_;
  bool broken_ = false;
};

}  // namespace platform::bus
