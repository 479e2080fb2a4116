#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fakes/FakePlatform.h"
#include "platform/macos/MacAuthorization.h"
#include "platform/macos/MacFileBrowser.h"
#include "platform/macos/MacFileOperations.h"
#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixMainThread.h"
#include "tests/macsdk/fakes/FakeAppleEvents.h"
#include "tests/macsdk/fakes/FakeAuthorization.h"
#include "tests/support/TemporaryFolder.h"

/// This program offers none of the functions that are looked up at run time, as systems do from which they
/// are gone.
namespace platform {
namespace {

using ::testing::Contains;

class MissingAuthorizationTest : public ::testing::Test {
 protected:
  MissingAuthorizationTest() { authorization.create(std::nullopt, kAuthorizationFlagDefaults, &reference); }

  ::fakes::FakePlatform fake;
  MacAuthorization authorization;
  AuthorizationRef reference = nullptr;
};

TEST_F(MissingAuthorizationTest, WithoutTheFunctionAppleScriptStartsAProgram) {
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {"-c", "id"}, nullptr),
            errAuthorizationSuccess);
  ASSERT_EQ(fake.subprocesses.created.size(), 1U);
  EXPECT_EQ(fake.subprocesses.created[0].launchPath, "/usr/bin/osascript");
  EXPECT_EQ(fake.subprocesses.created[0].arguments.back(),
            "'/bin/sh' '-c' 'id' </dev/null >/dev/null 2>&1 &");
}

TEST_F(MissingAuthorizationTest, TheOutputOfAProgramIsReadFromItsPipe) {
  fake.subprocesses.runs["/usr/bin/osascript"].output = "\xC3\xBC\n";
  std::unique_ptr<CommunicationsPipe> pipe;
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, &pipe), errAuthorizationSuccess);
  ASSERT_NE(pipe, nullptr);
  EXPECT_EQ(pipe->getCharacter(), 0xC3);
  EXPECT_EQ(pipe->getCharacter(), 0xBC);
  EXPECT_EQ(pipe->getCharacter(), -1);
}

TEST_F(MissingAuthorizationTest, WhoDeclinesGetsNoPipe) {
  fake.subprocesses.runs["/usr/bin/osascript"] = {.status = 1, .error = "User canceled. (-128)"};
  std::unique_ptr<CommunicationsPipe> pipe;
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, &pipe),
            errAuthorizationCanceled);
  EXPECT_EQ(pipe, nullptr);
}

TEST_F(MissingAuthorizationTest, NobodyIsAskedByAScriptEitherOnceThatIsOver) {
  authorization.stopAsking();
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, nullptr),
            errAuthorizationCanceled);
}

TEST(MissingAliasesTest, TheFinderIsToldTheItemsAddress) {
  const support::TemporaryFolder folder;
  ::fakes::appleEvents() = {};
  MacFileBrowser browser;
  EXPECT_EQ(browser.itemChanged(folder.path()), noErr);
  EXPECT_THAT(::fakes::appleEvents().calls, Contains("AEPutParamPtr ---- furl file://" + folder.path()));
}

TEST(MissingFileOperationsTest, CopiesAreMadeByDescriptors) {
  const ::fakes::FakePlatform fake;
  PosixMainThread mainThread;
  PosixClock clock{mainThread};
  MacFileOperations operations(mainThread, clock);
  EXPECT_FALSE(CarbonFileOperations::areThere());
  const auto operation = operations.create();
  ASSERT_NE(operation, nullptr);
  EXPECT_FALSE(CarbonFileOperations::owns(operation));
}

}  // namespace
}  // namespace platform
