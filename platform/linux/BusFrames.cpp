#include "platform/linux/BusFrames.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "platform/foundation/Text.h"

namespace platform::bus {

namespace {

using foundation::Date;
using foundation::PropertyList;

constexpr std::size_t kLongestText = 16U << 20;
constexpr int kDeepest = 16;  // below it there is only text
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// The kinds of a value, one byte each, in front of it.
enum class Tag : std::uint8_t { dictionary = 1, array, text, data, boolean, whole, natural, real, date, uid };

template <typename Number>
void put(std::string& out, Number number) {
  static_assert(std::is_trivially_copyable_v<Number>);
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  out.append(bytes, sizeof number);
}

void putCounted(std::string& out, std::string_view bytes) {
  put(out, static_cast<std::uint32_t>(bytes.size()));
  out.append(bytes);
}

void putValue(std::string& out, const PropertyList& value, int depth);

struct Writer {
  std::string& out;
  int depth;

  void operator()(const PropertyList::Dictionary& entries) const {
    put(out, Tag::dictionary);
    put(out, static_cast<std::uint32_t>(entries.size()));
    for (const auto& [key, value] : entries) {
      putCounted(out, busText(key));
      putValue(out, value, depth + 1);
    }
  }
  void operator()(const PropertyList::Array& elements) const {
    put(out, Tag::array);
    put(out, static_cast<std::uint32_t>(elements.size()));
    for (const PropertyList& element : elements) putValue(out, element, depth + 1);
  }
  void operator()(const std::string& text) const {
    put(out, Tag::text);
    putCounted(out, busText(text));
  }
  void operator()(const PropertyList::Data& data) const {
    put(out, Tag::data);
    putCounted(out, data.bytes);
  }
  void operator()(bool value) const { putPlain(Tag::boolean, static_cast<std::uint8_t>(value)); }
  void operator()(std::int64_t value) const { putPlain(Tag::whole, value); }
  void operator()(std::uint64_t value) const { putPlain(Tag::natural, value); }
  void operator()(double value) const { putPlain(Tag::real, value); }
  void operator()(const PropertyList::Uid& value) const { putPlain(Tag::uid, value.value); }
  void operator()(const Date& value) const {
    putPlain(Tag::date, static_cast<std::int64_t>(value.moment().time_since_epoch().count()));
  }

 private:
  template <typename Number>
  void putPlain(Tag tag, Number number) const {
    put(out, tag);
    put(out, number);
  }
};

void putValue(std::string& out, const PropertyList& value, int depth) {
  const bool isTooDeep = depth > kDeepest;
  std::visit(Writer{out, depth}, isTooDeep ? PropertyList(value.description()).value() : value.value());
}

/// Reads from the front of the bytes; once something is missing everything it gives is empty and `ok` false.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  [[nodiscard]] bool ok() const { return ok_; }
  [[nodiscard]] bool isAtEnd() const { return ok_ && rest_.empty(); }

  template <typename Number>
  Number number() {
    Number value{};
    const std::string_view bytes = take(sizeof value);
    if (ok_) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  std::string counted() { return std::string(take(number<std::uint32_t>())); }
  std::string_view remainder() { return take(rest_.size()); }

  PropertyList value(int depth = 0) {
    if (depth > kDeepest + 1) return fail();
    switch (static_cast<Tag>(number<std::uint8_t>())) {
      case Tag::dictionary:
        return dictionary(depth);
      case Tag::array:
        return array(depth);
      case Tag::text:
        return counted();
      case Tag::data:
        return PropertyList::Data{counted()};
      case Tag::boolean:
        return number<std::uint8_t>() != 0;
      case Tag::whole:
        return number<std::int64_t>();
      case Tag::natural:
        return number<std::uint64_t>();
      case Tag::real:
        return number<double>();
      case Tag::date:
        return Date(Date::TimePoint(std::chrono::nanoseconds(number<std::int64_t>())));
      case Tag::uid:
        return PropertyList::Uid{number<std::uint64_t>()};
    }
    return fail();
  }

 private:
  std::string_view take(std::size_t count) {
    if (!ok_ || count > rest_.size()) {
      ok_ = false;
      return {};
    }
    return std::exchange(rest_, rest_.substr(count)).substr(0, count);
  }
  PropertyList fail() {
    ok_ = false;
    return {};
  }
  PropertyList dictionary(int depth) {
    PropertyList::Dictionary entries;
    for (auto count = number<std::uint32_t>(); ok_ && count > 0; --count) {
      std::string key = counted();
      entries.emplace_back(std::move(key), value(depth + 1));
    }
    return entries;
  }
  PropertyList array(int depth) {
    PropertyList::Array elements;
    for (auto count = number<std::uint32_t>(); ok_ && count > 0; --count)
      elements.push_back(value(depth + 1));
    return elements;
  }

  std::string_view rest_;
  bool ok_ = true;
};

std::string framed(const std::string& body) {
  std::string frame;
  frame.reserve(body.size() + sizeof(std::uint32_t));
  putCounted(frame, body);
  return frame;
}

bool isNoncharacter(char32_t character) {
  return (character & 0xFFFEU) == 0xFFFE || (character >= 0xFDD0 && character <= 0xFDEF);
}

bool isPlain(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value > 0 && value < 0x80;
}

/// A run of plain characters, or one that is not: its length in the text, and what stands for it.
std::pair<std::size_t, std::string_view> nextPiece(std::string_view text) {
  std::size_t run = 0;
  while (run < text.size() && isPlain(text[run])) ++run;
  if (run > 0) return {run, text.substr(0, run)};
  const foundation::Utf8Character character = foundation::firstCharacter(text);
  const bool isTransferable = character.code != 0 && !isNoncharacter(character.code);
  return {std::max<std::size_t>(character.length, 1),
          isTransferable ? text.substr(0, character.length) : kReplacement};
}

}  // namespace

std::string busText(std::string_view text) {
  std::string result;
  result.reserve(std::min(text.size(), kLongestText));
  while (!text.empty()) {
    const auto [length, added] = nextPiece(text);
    const std::size_t room = kLongestText - result.size();
    if (added.size() > room && !isPlain(added.front())) break;
    result.append(added.substr(0, room));
    if (added.size() > room) break;
    text.remove_prefix(length);
  }
  return result;
}

std::string encoded(const Request& request) {
  std::string body;
  put(body, request.kind);
  put(body, request.number);
  put(body, static_cast<std::uint32_t>(std::max<std::int64_t>(request.timeLeft.count(), 0)));
  putValue(body, request.fields, 0);
  return framed(body);
}

std::string encoded(const Report& report) {
  std::string body;
  put(body, report.kind);
  put(body, report.number);
  put(body, report.outcome);
  body += report.text.substr(0, 255);
  return framed(body);
}

std::optional<Request> decodedRequest(std::string_view body) {
  Reader reader(body);
  Request request;
  const auto kind = reader.number<std::uint8_t>();
  request.kind = static_cast<RequestKind>(kind);
  request.number = reader.number<std::uint32_t>();
  request.timeLeft = std::chrono::milliseconds(reader.number<std::uint32_t>());
  request.fields = reader.value();
  const bool isKnown = kind >= static_cast<std::uint8_t>(RequestKind::postSignal) &&
                       kind <= static_cast<std::uint8_t>(RequestKind::messageClient);
  if (!reader.isAtEnd() || !isKnown) return std::nullopt;
  return request;
}

std::optional<Report> decodedReport(std::string_view body) {
  Reader reader(body);
  Report report;
  const auto kind = reader.number<std::uint8_t>();
  report.kind = static_cast<ReportKind>(kind);
  report.number = reader.number<std::uint64_t>();
  const auto outcome = reader.number<std::uint8_t>();
  report.outcome = static_cast<Outcome>(outcome);
  report.text = reader.remainder();
  const bool isKnown = kind >= 1 && kind <= static_cast<std::uint8_t>(ReportKind::notificationExpired) &&
                       outcome >= 1 && outcome <= static_cast<std::uint8_t>(Outcome::failed);
  if (!reader.isAtEnd() || !isKnown || report.text.size() > 255) return std::nullopt;
  return report;
}

std::optional<std::string> FrameReader::next() {
  std::uint32_t length = 0;
  if (broken_ || bytes_.size() < sizeof length) return std::nullopt;
  std::memcpy(&length, bytes_.data(), sizeof length);
  broken_ = length > longestBody_;
  if (broken_ || bytes_.size() - sizeof length < length) return std::nullopt;
  std::string body = bytes_.substr(sizeof length, length);
  bytes_.erase(0, sizeof length + length);
  return body;
}

}  // namespace platform::bus
