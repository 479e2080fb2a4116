#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using support::ProgramRun;
using support::TemporaryFolder;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// The table of a run that has left these lines.
ProgramRun show(const std::string& results) {
  const TemporaryFolder folder;
  return support::runProgram({COMPARE, "--show", folder.file("results", results)});
}

constexpr const char* kWildcardWithin =
    "measured wildcard 1000 0.000500 0.001000 0.5000\n"
    "measured wildcard 10000 0.006000 0.005000 1.2000\n"
    "measured wildcard 100000 2.000000 2.000000 1.0000\n";

TEST(Compare, ListsEachRowWithItsLimit) {
  const auto run = support::runProgram({COMPARE, "--list"});
  EXPECT_EQ(run.status, 0);
  const auto lines = linesOf(run.output);
  EXPECT_THAT(lines, SizeIs(17));
  EXPECT_THAT(lines, testing::Contains(ContainsRegex("^help +at most 1\\.3 ")));
  EXPECT_THAT(lines, testing::Contains(ContainsRegex("^trash-gio +at most 0\\.2 .*gio trash")));
}

TEST(Compare, ARowIsJudgedByItsLargestSize) {
  const auto run = show(kWildcardWithin);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_THAT(run.output,
              ContainsRegex("1000: 0\\.50 \\(0\\.50 ms\\) +\\| 10000: 1\\.20 \\(6\\.00 ms\\) +\\| "
                            "100000: 1\\.00 \\(2\\.00 s\\) +\\| within +\\|"));
}

TEST(Compare, OneRowOverItsLimitMakesTheStatus2) {
  const auto run = show(std::string(kWildcardWithin) + "measured task-run 2000 1.110100 1.000000 1.1101\n");
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.output, ContainsRegex("task-run.*1\\.11.*\\| over +\\|"));
}

TEST(Compare, WhatCouldNotBeMeasuredSaysWhyAndMakesTheStatus1) {
  const auto run = show(std::string(kWildcardWithin) + "failed chmod needs root\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, ContainsRegex("chmod .*\\| not measured: needs root +\\|"));
}

TEST(Compare, ARowThatFailsHalfWayIsNotMeasured) {
  const auto run = show("measured chmod 10000 0.1 1.0 0.1000\nfailed chmod was not changed: /a b\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, AllOf(HasSubstr("10000: 0.10"), HasSubstr("not measured: was not changed: /a b")));
}

TEST(Compare, RowsWhoseNamesBeginAlikeAreToldApart) {
  const auto run = show("measured task-data-kept 1024 1.0 1.0 1.0000\n");
  EXPECT_THAT(run.output, Not(HasSubstr("| task-data ")));
  EXPECT_THAT(run.output, HasSubstr("| task-data-kept "));
}

TEST(Compare, TheColumnsOfTheTableStandInLine) {
  const auto lines = linesOf(show(std::string(kWildcardWithin) + "failed chmod needs root\n").output);
  ASSERT_GE(lines.size(), 4U);
  for (std::size_t line = 0; line < 4; ++line) {
    EXPECT_THAT(lines[line], StartsWith("|"));
    EXPECT_EQ(lines[line].size(), lines[0].size());
  }
}

TEST(Compare, AQuickRunSaysThatItsFiguresAreForALook) {
  EXPECT_THAT(show(std::string("quick\n") + kWildcardWithin).output, HasSubstr("for a look"));
  EXPECT_THAT(show(kWildcardWithin).output, Not(HasSubstr("for a look")));
}

TEST(Compare, ARowThatThereIsNotIsRefused) {
  const auto run = support::runProgram({COMPARE, "no-such-row"});
  EXPECT_EQ(run.status, 64);
  EXPECT_THAT(run.output, HasSubstr("no-such-row"));
}

}  // namespace
