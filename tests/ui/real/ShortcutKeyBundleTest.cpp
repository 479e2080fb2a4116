#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/LinuxMainBundle.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/posix/PosixFiles.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

using foundation::PropertyList;

namespace {

/// What the editor reads of the bundle as it was built.
class ShortcutKeyBundleTest : public testing::Test {
 protected:
  platform::LinuxPropertyLists lists;
};

TEST_F(ShortcutKeyBundleTest, TheCommandsAreThoseOfThisApplication) {
  const auto file = lists.parse(support::contentOf(BUNDLE "/Contents/TGKeys.plist"));
  ASSERT_TRUE(file);
  const auto* const commands = file.value().find("TGKeys")->as<PropertyList::Array>();
  ASSERT_NE(commands, nullptr);
  std::vector<std::string> ids;
  for (const PropertyList& command : *commands) {
    ids.push_back(command.stringFor("id"));
    EXPECT_NE(command.stringFor("description"), "");
  }
  EXPECT_THAT(
      ids, testing::ElementsAre("repair", "menuStopQmaster", "menuRestartQmaster", "menuTrashCompressorPrefs",
                                "menuTrashCompressor4Prefs", "resetWindowLayout", "gatherLogs"));
}

TEST_F(ShortcutKeyBundleTest, EveryNamedKeyHasAnEnglishText) {
  const support::EnvironmentVariable language("LC_ALL", "C");
  const auto strings =
      lists.parse(support::contentOf(BUNDLE "/Contents/Resources/en.lproj/Localizable.strings"));
  ASSERT_TRUE(strings);
  for (const char* name : {"Up Arrow", "Down Arrow", "Left Arrow", "Right Arrow", "Home", "End", "Page Up",
                           "Page Down", "Return", "Tab", "Backtab", "Enter", "Backspace", "Delete", "Escape",
                           "Space", "%@ is also assigned to %@.", "an unknown application"}) {
    EXPECT_NE(strings.value().stringFor(name), "") << name;
  }
  platform::PosixFileQueries files;
  platform::LinuxMainBundle bundle(files, lists, BUNDLE "/Contents/MacOS/Quillmend");
  EXPECT_EQ(bundle.localizedString("Page Up"), strings.value().stringFor("Page Up"));
}

}  // namespace
