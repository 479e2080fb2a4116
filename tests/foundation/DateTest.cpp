#include "platform/foundation/Date.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

namespace foundation {
namespace {

/// Sets the local time zone for the length of a scope.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~TimeZone() {
    ::unsetenv("TZ");
    ::tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
};

TEST(Date, ItsDescriptionIsInUniversalTime) {
  const TimeZone zone("EST5EDT");
  EXPECT_EQ(Date::fromUnixTime(1293876000).description(), "2011-01-01 10:00:00 +0000");
  EXPECT_EQ(Date().description(), "1970-01-01 00:00:00 +0000");
}

TEST(Date, ItsDescriptionCutsTheFraction) {
  EXPECT_EQ(Date::fromUnixTime(1293876000.999).description(), "2011-01-01 10:00:00 +0000");
  EXPECT_EQ(Date::fromUnixTime(-0.25).description(), "1969-12-31 23:59:59 +0000");
}

TEST(Date, FormatsInLocalTimeWithItsSummerTime) {
  const TimeZone zone("EST5EDT");
  EXPECT_EQ(Date::fromUnixTime(1293876000).formattedLocally("%Y%m%d%H%M%S"), "20110101050000");
  EXPECT_EQ(Date::fromUnixTime(1309514400).formattedLocally("%Y%m%d%H%M%S"), "20110701060000");
}

TEST(Date, AFormatOfAnyLengthIsFilled) {
  const TimeZone zone("UTC");
  EXPECT_EQ(Date().formattedLocally(""), "");
  std::string format;
  std::string expected;
  for (int count = 0; count < 100; ++count) {
    format += "%Y ";
    expected += "1970 ";
  }
  EXPECT_EQ(Date().formattedLocally(format.c_str()), expected);
}

TEST(Date, TheConsoleStampHasMilliseconds) {
  const TimeZone zone("UTC");
  EXPECT_EQ(Date::fromUnixTime(1293876000.25).consoleStamp(), "2011-01-01 10:00:00.250");
  EXPECT_EQ(Date(Date::TimePoint(std::chrono::nanoseconds(999'999'999))).consoleStamp(),
            "1970-01-01 00:00:00.999");
  EXPECT_EQ(Date(Date::TimePoint(std::chrono::nanoseconds(-1))).consoleStamp(), "1969-12-31 23:59:59.999");
}

TEST(Date, SecondsGoInAndComeOut) {
  EXPECT_DOUBLE_EQ(Date::fromUnixTime(1293876000.5).unixTime(), 1293876000.5);
  EXPECT_DOUBLE_EQ(Date::fromUnixTime(-1e9).unixTime(), -1e9);
}

TEST(Date, APartOfASecondIsRoundedToTheNearestNanosecond) {
  const auto nanoseconds = [](double seconds) {
    return std::lround((Date::fromUnixTime(seconds).unixTime()) * 1e9);
  };
  EXPECT_EQ(nanoseconds(0.4e-9), 0);
  EXPECT_EQ(nanoseconds(0.6e-9), 1);
  EXPECT_EQ(nanoseconds(2.4e-9), 2);
  EXPECT_EQ(nanoseconds(2.6e-9), 3);
  EXPECT_EQ(nanoseconds(0.9999999994), 999'999'999);
  EXPECT_EQ(nanoseconds(0.9999999996), 1'000'000'000);
}

TEST(Date, AMomentBeyondItsRangeIsItsFarthest) {
  EXPECT_EQ(Date::fromUnixTime(1e30), Date::fromUnixTime(1e12));
  EXPECT_EQ(Date::fromUnixTime(-1e30), Date::fromUnixTime(-1e12));
  EXPECT_EQ(Date::fromUnixTime(1e30).description(), "2262-04-11 23:47:16 +0000");
  EXPECT_EQ(Date::fromUnixTime(-1e30).description(), "1677-09-21 00:12:45 +0000");
}

TEST(Date, EarlierIsLess) {
  EXPECT_LT(Date::fromUnixTime(1), Date::fromUnixTime(2));
  EXPECT_EQ(Date::fromUnixTime(2), Date::fromUnixTime(2));
}

}  // namespace
}  // namespace foundation
