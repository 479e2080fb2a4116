#include "platform/foundation/Date.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace foundation {
namespace {

std::time_t wholeSeconds(Date::TimePoint moment) {
  return static_cast<std::time_t>(
      std::chrono::floor<std::chrono::seconds>(moment).time_since_epoch().count());
}

std::string format(const std::tm& parts, const char* calendarFormat) {
  std::string text(64, '\0');
  while (true) {
    const std::size_t length = std::strftime(text.data(), text.size(), calendarFormat, &parts);
    if (length > 0 || *calendarFormat == '\0' || text.size() > 4096) {
      text.resize(length);
      return text;
    }
    text.resize(text.size() * 2);
  }
}

/// To the nearest, halves up; of a value that is not negative. What std::llround() does, without the library
/// of mathematics, which every start of every program would have to map for this alone.
std::int64_t rounded(double value) {
  const auto whole = static_cast<std::int64_t>(value);
  return whole + (value - static_cast<double>(whole) >= 0.5 ? 1 : 0);
}

/// The greatest whole number of seconds whose nanoseconds fit.
constexpr double kFarthest = 9223372035.0;

}  // namespace

Date Date::fromUnixTime(double seconds) {
  // Whole seconds and the rest apart: a double that counts nanoseconds since 1970 is 128 of them coarse.
  const double whole = std::floor(std::clamp(seconds, -kFarthest, kFarthest));
  const double rest = std::clamp(seconds - whole, 0.0, 1.0);
  return Date(TimePoint(std::chrono::seconds(static_cast<std::int64_t>(whole)) +
                        std::chrono::nanoseconds(rounded(rest * 1e9))));
}

double Date::unixTime() const {
  const auto whole = std::chrono::floor<std::chrono::seconds>(moment_);
  return static_cast<double>(whole.time_since_epoch().count()) +
         std::chrono::duration<double>(moment_ - whole).count();
}

std::string Date::description() const {
  const std::time_t seconds = wholeSeconds(moment_);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  return format(parts, "%Y-%m-%d %H:%M:%S +0000");
}

std::string Date::formattedLocally(const char* calendarFormat) const {
  const std::time_t seconds = wholeSeconds(moment_);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return format(parts, calendarFormat);
}

std::string Date::consoleStamp() const {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(moment_);
  const auto fraction = std::chrono::duration_cast<std::chrono::milliseconds>(moment_ - seconds);
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), ".%03d", static_cast<int>(fraction.count()));
  return formattedLocally("%Y-%m-%d %H:%M:%S") + text.data();
}

}  // namespace foundation
