#pragma once

#include <chrono>
#include <compare>
#include <string>

namespace foundation {

/// A moment in time, to the nanosecond, in UTC.
class Date {
 public:
  using TimePoint = std::chrono::sys_time<std::chrono::nanoseconds>;

  Date() = default;
  explicit Date(TimePoint moment) : moment_(moment) {}

  /// The moment that many seconds after 1970-01-01 00:00:00 UTC. Moments before 1677-09-21 and after
  /// 2262-04-11 become those. REQUIRES a number.
  [[nodiscard]] static Date fromUnixTime(double seconds);

  [[nodiscard]] TimePoint moment() const { return moment_; }
  [[nodiscard]] double unixTime() const;

  /// The default textual form, "2011-01-01 10:00:00 +0000": UTC, whole seconds (cut, not rounded).
  [[nodiscard]] std::string description() const;

  /// Local time by a strftime(3) format, for example "%Y%m%d%H%M%S".
  [[nodiscard]] std::string formattedLocally(const char* calendarFormat) const;

  /// Local time with milliseconds, as at the head of a system console line: "2011-01-01 10:00:00.123".
  [[nodiscard]] std::string consoleStamp() const;

  bool operator==(const Date&) const = default;
  // By the count, because not every C++ library compares moments in three ways.
  // clang-tidy 14 takes the operator for a null pointer.
  auto operator<=>(const Date& other) const {  // NOLINT(modernize-use-nullptr)
    return moment_.time_since_epoch().count() <=> other.moment_.time_since_epoch().count();
  }

 private:
  TimePoint moment_{};
};

}  // namespace foundation
