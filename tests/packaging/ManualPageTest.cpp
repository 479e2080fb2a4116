#include <gmock/gmock.h>

#include "tests/packaging/Arguments.h"
#include "tests/support/ProgramRun.h"

// The manual page, as it is installed.

namespace packaging {
namespace {

using support::runProgram;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::SizeIs;

/// As a terminal shows it, without what makes letters bold.
std::string page() {
  const auto run = runProgram({"/usr/bin/mandoc", "-Tascii", MANUAL_PAGE});
  EXPECT_EQ(run.status, 0);
  return std::regex_replace(run.output, std::regex(".\b"), "");
}

TEST(ManualPage, NothingIsWrongWithIt) {
  const auto run = runProgram({"/usr/bin/mandoc", "-Tlint", "-Wwarning", MANUAL_PAGE});
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.status, 0);
}

TEST(ManualPage, ExplainsEveryArgument) {
  const auto arguments = knownArguments();
  ASSERT_THAT(arguments, SizeIs(10));
  const std::string text = page();
  for (const std::string& argument : arguments) {
    EXPECT_THAT(text, ContainsRegex("\n     (-repair, )?" + argument + "[ ,\n]"));
  }
}

TEST(ManualPage, NamesTheVersionAndTheSite) {
  const std::string text = page();
  EXPECT_THAT(text, HasSubstr("\nQuillmend " VERSION " "));
  EXPECT_THAT(text, HasSubstr("Vordenworks, " WEB_SITE));
}

}  // namespace
}  // namespace packaging
