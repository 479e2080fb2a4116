#include "platform/posix/ToolMain.h"

#include <gmock/gmock.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/helpers/ToolProcess.h"

namespace helpers {
namespace {

using platform::toolMain;

TEST(ToolMain, WhatIsThrownIsAFailureWithItsReasonOnStandardError) {
  int errors[2];
  ASSERT_EQ(pipe(errors), 0);
  ToolProcess::run(
      [&] {
        char* values[] = {nullptr};
        const auto fails = [](const auto&, Report&) -> ExitStatus { throw std::runtime_error("no memory"); };
        EXPECT_EQ(toolMain(0, values, "tool", fails), 1);
      },
      errors[1]);
  close(errors[1]);
  char text[64] = {};
  EXPECT_GT(read(errors[0], text, sizeof text - 1), 0);
  close(errors[0]);
  EXPECT_STREQ(text, "tool: no memory\n");
}

TEST(ToolMain, ArgumentsComeWithoutTheProgramsNameWhichMayBeMissing) {
  ToolProcess::run([] {
    std::string name = "tool";
    std::string argument = "-x";
    char* values[] = {name.data(), argument.data(), nullptr};
    std::vector<std::string> seen;
    const auto notes = [&seen](const auto& arguments, Report&) {
      seen = arguments;
      return ExitStatus::done;
    };
    EXPECT_EQ(toolMain(2, values, "tool", notes), 0);
    EXPECT_THAT(seen, ::testing::ElementsAre("-x"));
    EXPECT_EQ(toolMain(0, values + 2, "tool", notes), 0);
    EXPECT_THAT(seen, ::testing::IsEmpty());
  });
}

TEST(ToolMain, TheProcessIsCalledByTheToolsNameWhateverItIsStartedBy) {
  ToolProcess::run([] {
    std::string lie = "/home/alice/lie";
    char* values[] = {lie.data(), nullptr};
    std::string name;
    const auto notes = [&name](const auto&, Report&) {
      std::getline(std::ifstream("/proc/self/comm"), name);
      return ExitStatus::done;
    };
    EXPECT_EQ(toolMain(1, values, "tool", notes), 0);
    EXPECT_EQ(name, "tool");
  });
}

}  // namespace
}  // namespace helpers
