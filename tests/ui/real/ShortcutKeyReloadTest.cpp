#include "diagnostics/TGLog.h"
#include "platform/linux/BusDistributedNotifications.h"
#include "tests/platform/BusFixture.h"
#include "tests/support/SingletonScope.h"
#include "ui/TGShortcutKeyTableDelegate.h"

using foundation::PropertyList;
using platform::BusAgent;
using platform::BusDistributedNotifications;

namespace {

/// The fakes, but for a real bus.
class ShortcutKeyReloadTest : public BusFixture {
 protected:
  void TearDown() override { TGLog::finishWriting(); }

  [[nodiscard]] platform::Platform on(BusDistributedNotifications& notifications) {
    const platform::Platform& fakes = platform::current();
    return {fakes.clock,
            fakes.mainThread,
            fakes.userInterfaceEvents,
            fakes.usersAndFolders,
            fakes.fileQueries,
            fakes.fileChanges,
            fakes.fileLocks,
            fakes.fileAttributes,
            fakes.folderQueries,
            fakes.fileReferences,
            fakes.fileOperations,
            fakes.fileBrowser,
            fakes.subprocesses,
            fakes.applications,
            fakes.workspace,
            fakes.authorization,
            notifications,
            fakes.localNotifications,
            fakes.desktopNotifications,
            fakes.clientConnections,
            fakes.propertyLists,
            fakes.preferences,
            fakes.gathering,
            fakes.alerts,
            fakes.systemConsole,
            fakes.mainBundle,
            fakes.processInformation,
            fakes.keyboardLayout,
            fakes.interruption,
            fakes.desktopApplication};
  }

  foundation::SingletonScope<TGLog> log;
  foundation::SingletonScope<TGShortcutKeyTableDelegate> delegate;
};

TEST_F(ShortcutKeyReloadTest, AnotherProgramOnTheBusHearsOfEachWriteAndOfNothingElse) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  auto which = options();
  which.sessionBus = bus.address();
  BusAgent agent(which);
  BusDistributedNotifications notifications(agent);
  platform::Platform mixed = on(notifications);
  const platform::PlatformScope scope(mixed);

  auto& keys = *TGShortcutKeyTableDelegate::sharedController();
  keys.clearShortcutKey(nullptr);  // writes nothing
  ASSERT_TRUE(keys.setKeyboardShortcutWithID("repair", {}, 1, {.cmd = true}));
  ASSERT_TRUE(keys.setKeyboardShortcutWithID("repair", {}, 2, {.cmd = true}));
  notifications.post("last", std::nullopt);
  const std::string reload =
      "/com/vordenworks/DistributedNotifications Posted s:'TGShortcutKeysReload' s:'' {sv}[]";
  EXPECT_EQ(listener->line(), reload);
  EXPECT_EQ(listener->line(), reload);
  EXPECT_THAT(listener->line(), testing::HasSubstr("s:'last'"));
}

}  // namespace
