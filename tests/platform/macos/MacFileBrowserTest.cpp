#include "platform/macos/MacFileBrowser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/macsdk/fakes/FakeAppleEvents.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

class MacFileBrowserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::appleEvents() = {};
  }
  void TearDown() override {
    EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released";
    EXPECT_EQ(::fakes::appleEvents().held, 0) << "descriptors were not disposed of";
  }

  support::TemporaryFolder folder;
  MacFileBrowser browser;
};

TEST_F(MacFileBrowserTest, TheFinderHearsOfTheItemAndNobodyWaits) {
  const std::string path = folder.file("movie.mov");
  EXPECT_EQ(browser.itemChanged(path), noErr);
  EXPECT_THAT(::fakes::appleEvents().calls,
              ElementsAre("CFURLGetFSRef file://" + path, "FSNewAliasMinimal movie.mov",
                          "AECreateDesc sign MACS", "AECreateAppleEvent fndr fupd to sign -1 0",
                          "AEPutParamPtr ---- alis alias of movie.mov", "AESendMessage no reply 1 -1"));
}

TEST_F(MacFileBrowserTest, ALinkIsTheItemAlsoWhereItLeadsNowhere) {
  std::filesystem::create_symlink("/nowhere", folder / "link");
  EXPECT_EQ(browser.itemChanged(folder / "link"), noErr);
}

TEST_F(MacFileBrowserTest, NothingIsSentOfWhatIsNotThere) {
  EXPECT_EQ(browser.itemChanged(folder / "absent"), fnfErr);
  EXPECT_THAT(::fakes::appleEvents().calls, ElementsAre());
}

class MacFileBrowserFailureTest : public MacFileBrowserTest,
                                  public ::testing::WithParamInterface<const char*> {};

TEST_P(MacFileBrowserFailureTest, AFailureIsPassedOnAndEndsIt) {
  ::fakes::appleEvents().statuses[GetParam()] = memFullErr;
  EXPECT_EQ(browser.itemChanged(folder.path()), memFullErr);
  EXPECT_THAT(::fakes::appleEvents().calls.back(), ::testing::StartsWith(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Functions, MacFileBrowserFailureTest,
                         ::testing::Values("FSNewAliasMinimal", "AECreateDesc", "AECreateAppleEvent",
                                           "AEPutParamPtr", "AESendMessage"));

TEST_F(MacFileBrowserTest, AnItemThatHasNoReferenceIsNotFound) {
  ::fakes::appleEvents().statuses["CFURLGetFSRef"] = ioErr;
  EXPECT_EQ(browser.itemChanged(folder.path()), fnfErr);
  EXPECT_THAT(::fakes::appleEvents().calls, ::testing::SizeIs(1));
}

TEST_F(MacFileBrowserTest, WithoutMemoryForTheAddressItIsSaid) {
  ::fakes::failCreation(1);
  EXPECT_EQ(browser.itemChanged(folder.path()), memFullErr);
}

}  // namespace
}  // namespace platform
