#include "platform/macos/MacProcessInformation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/macsdk/fakes/FakeSystem.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

template <typename Number>
std::string bytesOf(Number number) {
  return {reinterpret_cast<const char*>(&number), sizeof(number)};
}

class MacProcessInformationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::systemState() = {};
  }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  MacProcessInformation process;
};

TEST_F(MacProcessInformationTest, ArgumentsComeAsGivenTheProgramFirst) {
  EXPECT_EQ(process.processName(), "");
  ::fakes::systemState().arguments = {"/Applications/Quillmend.app/Contents/MacOS/Quillmend", "", "-repair"};
  EXPECT_THAT(process.arguments(),
              ElementsAre("/Applications/Quillmend.app/Contents/MacOS/Quillmend", "", "-repair"));
  EXPECT_EQ(process.processName(), "Quillmend");
}

TEST_F(MacProcessInformationTest, TheVersionIsInTheSystemsWords) {
  ::fakes::systemState().values = {{"kern.osproductversion", std::string("14.2\0", 5)},
                                   {"kern.osversion", std::string("23C64\0", 6)}};
  EXPECT_EQ(process.operatingSystemVersionString(), "Version 14.2 (Build 23C64)");
}

TEST_F(MacProcessInformationTest, ProcessorsAndMemoryAreTheComputers) {
  ::fakes::systemState().values = {{"hw.ncpu", bytesOf(8)}, {"hw.memsize", bytesOf(std::uint64_t{1} << 34U)}};
  EXPECT_EQ(process.processorCount(), 8);
  EXPECT_EQ(process.physicalMemory(), std::uint64_t{1} << 34U);
}

TEST_F(MacProcessInformationTest, WhatTheSystemDoesNotTellIsOneProcessorAndNoMemory) {
  EXPECT_EQ(process.processorCount(), 1);
  EXPECT_EQ(process.physicalMemory(), 0U);
  ::fakes::systemState().values = {{"hw.memsize", bytesOf(1)}};  // of another size
  EXPECT_EQ(process.physicalMemory(), 0U);
}

TEST_F(MacProcessInformationTest, NoUniqueStringComesTwice) {
  const std::string first = process.globallyUniqueString();
  EXPECT_NE(first, "");
  EXPECT_NE(process.globallyUniqueString(), first);
  ::fakes::failCreation(1);
  EXPECT_EQ(process.globallyUniqueString(), "");
}

}  // namespace
}  // namespace platform
