#include "helpers/Report.h"

#include <gmock/gmock.h>

#include "tests/helpers/TestVolume.h"

namespace helpers {
namespace {

TEST(Escaped, ControlCharactersCannotFakeLines) {
  EXPECT_EQ(escaped("a\nb\tc\rd\\e\x1b[0m\x7f"), "a\\nb\\tc\\rd\\\\e\\033[0m\\177");
}

TEST(Escaped, PlainUtf8StaysAndOtherBytesBecomeOctal) {
  EXPECT_EQ(escaped("Müller 日本"), "Müller 日本");
  EXPECT_EQ(escaped("\xff\xc3"), "\\377\\303");
  EXPECT_EQ(escaped("\xc0\x8a"), "\\300\\212");           // an overlong line feed
  EXPECT_EQ(escaped("\xed\xa0\x80"), "\\355\\240\\200");  // a surrogate
}

TEST(Escaped, UnicodeLineEndsAndDirectionMarksBecomeOctal) {
  EXPECT_EQ(escaped("\u0085"), "\\302\\205");
  EXPECT_EQ(escaped("\u2028"), "\\342\\200\\250");
  EXPECT_EQ(escaped("\u202e"), "\\342\\200\\256");
}

TEST(Report, AFailureIsOneLineWithPathAndReason) {
  RecordedReport recorded;
  Report& report = recorded;
  report.failure(foundation::systemError(EACCES, "/a\nb"));
  EXPECT_EQ(recorded.text(), "tool: /a\\nb: Permission denied\n");
  EXPECT_EQ(report.status(), ExitStatus::failed);
}

TEST(Report, ABrokenDescriptorDoesNotStopTheWork) {
  Report report("tool", -1);
  report.failure("/a", "reason");
  EXPECT_EQ(report.status(), ExitStatus::failed);
}

}  // namespace
}  // namespace helpers
