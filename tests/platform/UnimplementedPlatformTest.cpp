#include "platform/unimplemented/UnimplementedPlatform.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace platform {
namespace {

/// native() is the unimplemented backend's here.
class UnimplementedPlatformTest : public ::testing::Test {
 protected:
  Platform& platform = native();
};

TEST_F(UnimplementedPlatformTest, WhatCanFailFailsWithENOSYS) {
  EXPECT_EQ(platform.fileQueries.readFile("/etc/hostname", 10).error().code, ENOSYS);
  EXPECT_EQ(platform.fileQueries.readFileItself("/etc/hostname", 10).error().code, ENOSYS);
  EXPECT_EQ(platform.fileQueries.contentsOfDirectory("/").error().code, ENOSYS);
  EXPECT_EQ(platform.fileChanges.createDirectory("/tmp/x").error().code, ENOSYS);
  EXPECT_EQ(platform.fileChanges.move("/a", "/b").error().code, ENOSYS);
  EXPECT_EQ(platform.fileChanges.remove("/a").error().code, ENOSYS);
  EXPECT_EQ(platform.fileChanges.writeAtomically("/a", "").error().code, ENOSYS);
  EXPECT_EQ(platform.fileChanges.openForWriting("/a").error().code, ENOSYS);
  EXPECT_EQ(platform.gathering.createPrivateFolder("/a").error().code, ENOSYS);
  EXPECT_EQ(platform.gathering.useLeftFolder("/a").error().code, ENOSYS);
  EXPECT_EQ(platform.gathering.contentsOfDirectory({}, "/").error().code, ENOSYS);
  EXPECT_EQ(platform.gathering.copy({}, "/a", "/b", AtLink::copyLink).error().code, ENOSYS);
  EXPECT_FALSE(platform.gathering.exists({}, "/"));
  EXPECT_EQ(platform.propertyLists.parse("").error().code, ENOSYS);
  EXPECT_EQ(platform.propertyLists.serialize({}, PropertyListFormat::xml).error().code, ENOSYS);
  EXPECT_EQ(platform.workspace.recycle("/a", "/b", {"c"}).error().code, ENOSYS);
  EXPECT_TRUE(platform.applications.askToQuit("Compressor").has_value());
}

TEST_F(UnimplementedPlatformTest, AChildCannotBeLaunched) {
  const auto child = platform.subprocesses.create({.launchPath = "/bin/true"});
  EXPECT_FALSE(platform.subprocesses.isExecutableFile("/bin/true"));
  EXPECT_THROW(child->launch(), foundation::Exception);
  EXPECT_FALSE(child->isRunning());
}

TEST_F(UnimplementedPlatformTest, NobodyIsRootAndNothingIsGranted) {
  EXPECT_NE(platform.usersAndFolders.userID(), 0U);
  EXPECT_FALSE(platform.usersAndFolders.setUserID(0));
  AuthorizationRef reference = nullptr;
  EXPECT_NE(platform.authorization.create({}, kAuthorizationFlagDefaults, &reference),
            errAuthorizationSuccess);
  EXPECT_EQ(reference, nullptr);
}

TEST_F(UnimplementedPlatformTest, WorkForTheMainThreadIsDone) {
  bool done = false;
  platform.mainThread.perform([&] { done = true; }, Wait::no);
  EXPECT_TRUE(done);
}

}  // namespace
}  // namespace platform
