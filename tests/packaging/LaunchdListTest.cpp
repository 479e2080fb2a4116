#include <gmock/gmock.h>

#include "platform/linux/LinuxPropertyLists.h"
#include "tests/support/TemporaryFolder.h"

// What launchd(8) is given to repair by on a Mac.

namespace packaging {
namespace {

using foundation::PropertyList;

TEST(LaunchdList, RepairsEveryWeekByAProgramOfRootsAndLetsAStepEnd) {
  platform::LinuxPropertyLists lists;
  const auto list = lists.parse(support::contentOf(LAUNCHD_LIST));
  ASSERT_TRUE(list.ok());
  EXPECT_EQ(
      list.value(),
      PropertyList(PropertyList::Dictionary{
          {"Label", "com.vordenworks.Quillmend.repair"},
          {"ProgramArguments",
           PropertyList::Array{
               "/Library/Application Support/Vordenworks/Quillmend.app/Contents/MacOS/Quillmend", "-repair"}},
          {"StartCalendarInterval", PropertyList::Dictionary{{"Weekday", 0}, {"Hour", 3}, {"Minute", 30}}},
          {"ExitTimeOut", 300}}))
      << list.value().description();
}

}  // namespace
}  // namespace packaging
