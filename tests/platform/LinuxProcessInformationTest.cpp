#include "platform/linux/LinuxProcessInformation.h"

#include <gmock/gmock.h>
#include <sys/utsname.h>

#include <cctype>
#include <fstream>
#include <set>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/linux/ShellAssignments.h"

namespace platform {
namespace {

class LinuxProcessInformationTest : public ::testing::Test {
 protected:
  fakes::RootedFiles files;
  LinuxPropertyLists lists;
  LinuxProcessInformation information{files, lists};

  static std::string kernel() {
    utsname names{};
    ::uname(&names);
    return std::string(&names.sysname[0]) + " " + &names.release[0];
  }
};

TEST_F(LinuxProcessInformationTest, TheArgumentsAreThoseOfTheProgram) {
  std::ifstream commandLine("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> expected;
  for (std::string argument; std::getline(commandLine, argument, '\0');) {
    // The test framework takes its own arguments out of main's list.
    if (!argument.starts_with("--gtest_")) expected.push_back(argument);
  }
  EXPECT_EQ(information.arguments(), expected);
  EXPECT_EQ(information.processName(), expected[0].substr(expected[0].rfind('/') + 1));
}

TEST_F(LinuxProcessInformationTest, AMacVolumesVersionComesFirst) {
  files.makeFile("/etc/os-release", "PRETTY_NAME=\"Some Linux 1\"\n");
  files.makeFile("/System/Library/CoreServices/SystemVersion.plist",
                 "<plist><dict><key>ProductVersion</key><string>10.6.8</string>"
                 "<key>ProductBuildVersion</key><string>10K549</string></dict></plist>");
  EXPECT_EQ(information.operatingSystemVersionString(), "Version 10.6.8 (Build 10K549)");
}

TEST_F(LinuxProcessInformationTest, ElseItIsTheDistributionAndTheKernel) {
  files.makeFile("/etc/os-release", "NAME=Some\nPRETTY_NAME=\"Some Linux 1\"\n");
  EXPECT_EQ(information.operatingSystemVersionString(), "Some Linux 1 (" + kernel() + ")");
}

TEST_F(LinuxProcessInformationTest, DamagedFilesLeaveTheKernel) {
  EXPECT_EQ(information.operatingSystemVersionString(), kernel());
  files.makeFile("/System/Library/CoreServices/SystemVersion.plist", "garbage");
  files.makeFile("/etc/os-release", "\xFF\xFE");
  EXPECT_EQ(information.operatingSystemVersionString(), kernel());
}

TEST_F(LinuxProcessInformationTest, TheComputerHasProcessorsAndMemory) {
  EXPECT_GE(information.processorCount(), 1);
  std::ifstream file("/proc/meminfo");
  std::string name;
  std::uint64_t kibibytes = 0;
  file >> name >> kibibytes;
  ASSERT_EQ(name, "MemTotal:");
  EXPECT_EQ(information.physicalMemory(), kibibytes * 1024);
}

TEST_F(LinuxProcessInformationTest, NoTwoUniqueStringsAreAlike) {
  std::set<std::string> seen;
  for (int count = 0; count < 10000; ++count) seen.insert(information.globallyUniqueString());
  EXPECT_EQ(seen.size(), 10000U);
  EXPECT_THAT(*seen.begin(), ::testing::ContainsRegex(
                                 "^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"));
}

TEST(ShellAssignments, QuotationMarksAndBackslashesAreResolved) {
  EXPECT_EQ(shellAssignment("A=plain", "A"), "plain");
  EXPECT_EQ(shellAssignment("A=\"two words \\\" \\\\ \"", "A"), "two words \" \\ ");
  EXPECT_EQ(shellAssignment("A='it\\'\n", "A"), "it\\");
  EXPECT_EQ(shellAssignment("A=\n", "A"), "");
}

TEST(ShellAssignments, AValueEndsWhereAShellSeesItsEnd) {
  EXPECT_EQ(shellAssignment("A=\"one two\" # mine", "A"), "one two");
  EXPECT_EQ(shellAssignment("A='one;two'\"; three\";B=four", "A"), "one;two; three");
  EXPECT_EQ(shellAssignment("A=one\ttwo", "A"), "one");
  EXPECT_EQ(shellAssignment("A=one\\ two\\;three four", "A"), "one two;three");
  EXPECT_EQ(shellAssignment("A= one", "A"), "");
}

TEST(ShellAssignments, VariablesAreExpandedWhereAShellDoes) {
  const ShellVariables variables{{"HOME", "/home/alice"}};
  const auto value = [&](const std::string& text) { return shellAssignment("A=" + text, "A", variables); };
  EXPECT_EQ(value("$HOME"), "/home/alice");
  EXPECT_EQ(value("\"$HOME/one two\""), "/home/alice/one two");
  EXPECT_EQ(value("'$HOME/x'"), "$HOME/x");
  EXPECT_EQ(value("\\$HOME/x"), "$HOME/x");
  EXPECT_EQ(value("\"\\$HOME/x\""), "$HOME/x");
  EXPECT_EQ(value("\"$HOMEWARD/$x $\""), "$HOMEWARD/$x $");
  EXPECT_EQ(shellAssignment("A=$HOME", "A"), "$HOME");
}

TEST(ShellAssignments, BetweenQuotationMarksABackslashMayStandForItself) {
  EXPECT_EQ(shellAssignment("A=\"one\\two \\` \\\\\"", "A"), "one\\two ` \\");
}

TEST(ShellAssignments, TheLastAssignmentCountsAndOnlyOfThatName) {
  EXPECT_EQ(shellAssignment("A=1\nAB=2\n  A=3 \r\n#A=4\n", "A"), "3");
  EXPECT_EQ(shellAssignment("AB=2\nexport A\n", "A"), std::nullopt);
  EXPECT_EQ(shellAssignment("", "A"), std::nullopt);
}

}  // namespace
}  // namespace platform
