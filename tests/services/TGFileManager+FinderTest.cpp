#include <gmock/gmock.h>

#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/services/ServicesTest.h"

namespace {

using std::string_literals::operator""s;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TGFileManagerFinderTest : public ServicesTest {
 protected:
  TGFileManagerFinderTest() {
    fakes_.clock.holdOtherThreads();  // a timer is left asleep: it would outlive the test
    fakes_.files.makeFile("/usr/bin/touch");
    fakes_.files.makeFile("/file");
    fakes_.recorder.clear();
  }
  /// Until each timer sleeps: one that begins later would look for the platform of a test that has ended.
  void TearDown() override { fakes_.clock.waitForSleepers(fakes_.recorder.only({"run"}).size()); }

  void setFlags(unsigned flags) {
    auto& information = fakes_.fileAttributes.information["/file"];
    information.fill(0xa5);
    information[8] = static_cast<std::uint8_t>(flags >> 8);
    information[9] = static_cast<std::uint8_t>(flags);
  }
  [[nodiscard]] unsigned flags() {
    const auto& information = fakes_.fileAttributes.information["/file"];
    return information[8] * 256U + information[9];
  }

 private:
  foundation::SingletonScope<TGAuthorization> authorization_;
};

TEST_F(TGFileManagerFinderTest, AWritableFileIsTouchedByTheUser) {
  EXPECT_TRUE(TGFileManager::touchFile("/file"));
  EXPECT_THAT(fakes_.recorder.only({"run", "privileged"}), ElementsAre("run /usr/bin/touch -c /file"));
}

TEST_F(TGFileManagerFinderTest, TouchingHasATimeOutOfFiveSeconds) {
  EXPECT_TRUE(TGFileManager::touchFile("/file"));
  EXPECT_THAT(fakes_.clock.waitForSleepers(1), ElementsAre(std::chrono::seconds(5)));
}

TEST_F(TGFileManagerFinderTest, WhatIsNotWritableIsTouchedWithRights) {
  fakes_.files.denied = {{"/file", platform::Access::write}};
  EXPECT_TRUE(TGFileManager::touchFile("/file"));
  EXPECT_TRUE(TGFileManager::touchFile("/missing")) << "the tool creates nothing";
  EXPECT_THAT(fakes_.recorder.only({"run", "privileged"}),
              ElementsAre("privileged /usr/bin/touch -c /file", "privileged /usr/bin/touch -c /missing"));
  EXPECT_GT(fakes_.authorization.charactersRead, 0U) << "its end is waited for";
}

TEST_F(TGFileManagerFinderTest, TouchingWithoutRightsFails) {
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  EXPECT_FALSE(TGFileManager::touchFile("/missing"));
  EXPECT_THAT(fakes_.recorder.only({"run", "privileged"}), IsEmpty());
}

TEST_F(TGFileManagerFinderTest, NothingIsNotTouched) {
  for (const TGFileManager::Path& path : std::vector<TGFileManager::Path>{std::nullopt, "", "/file\0x"s}) {
    EXPECT_FALSE(TGFileManager::touchFile(path));
  }
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGFileManagerFinderTest, TheColourIndexIsTheWholeFlagsWord) {
  setFlags(0x0004);
  EXPECT_EQ(TGFileManager::finderColorIndexForPath("/file"), 0x0004);
  setFlags(0x4104);
  EXPECT_EQ(TGFileManager::finderColorIndexForPath("/file"), 0x4104);
  EXPECT_EQ(TGFileManager::finderColorForPath("/file"), std::nullopt)
      << "other flags hide the label, on purpose";
  EXPECT_EQ(TGFileManager::finderColorIndexForPath("/missing"), 0);
  EXPECT_EQ(TGFileManager::finderColorIndexForPath(std::nullopt), 0);
}

TEST_F(TGFileManagerFinderTest, EachLabelHasItsColour) {
  const std::vector<TGColor> colors = {
      {0.0F, 0.0F, 0.72F},     {0.2056F, 0.5F, 0.85F}, {0.7917F, 0.26F, 0.86F}, {0.5789F, 0.56F, 0.98F},
      {0.1388F, 0.54F, 0.95F}, {0.0083F, 0.54F, 1.0F}, {0.0888F, 0.52F, 0.98F}};
  for (unsigned index = 2; index <= 15; ++index) {
    setFlags(index);
    EXPECT_EQ(TGFileManager::finderColorForPath("/file"), colors.at(index / 2 - 1)) << index;
  }
  EXPECT_EQ(TGColor().alpha, 1.0F);
  for (const unsigned index : {0U, 1U, 16U, 0x8002U}) {
    setFlags(index);
    EXPECT_EQ(TGFileManager::finderColorForPath("/file"), std::nullopt) << index;
  }
  EXPECT_EQ(TGFileManager::finderColorForPath("/missing"), std::nullopt);
}

TEST_F(TGFileManagerFinderTest, SettingALabelKeepsEveryOtherBit) {
  setFlags(0xfff1);
  TGFileManager::setFinderColorIndex(6, "/file");
  EXPECT_EQ(flags(), 0xfff7U);
  TGFileManager::setFinderColorIndex(0, "/file");
  EXPECT_EQ(flags(), 0xfff1U);
  const auto& information = fakes_.fileAttributes.information["/file"];
  EXPECT_EQ(std::count(information.begin(), information.end(), 0xa5), 30);
}

TEST_F(TGFileManagerFinderTest, AnIndexIsCutToTheLabelsBits) {
  TGFileManager::setFinderColorIndex(3, "/file");
  EXPECT_EQ(TGFileManager::finderColorIndexForPath("/file"), 2);
  TGFileManager::setFinderColorIndex(-1, "/file");
  EXPECT_EQ(TGFileManager::finderColorIndexForPath("/file"), 14);
  TGFileManager::setFinderColorIndex(16, "/file");
  EXPECT_EQ(TGFileManager::finderColorIndexForPath("/file"), 0);
}

TEST_F(TGFileManagerFinderTest, SettingALabelThatCannotBeSetDoesNothingSilently) {
  TGFileManager::setFinderColorIndex(2, "/missing");
  TGFileManager::setFinderColorIndex(2, std::nullopt);
  EXPECT_THAT(calls(), IsEmpty());
  fakes_.fileAttributes.refusal = foundation::systemError(EPERM, "/file");
  TGFileManager::setFinderColorIndex(2, "/file");
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerFinderTest, LocksAreSetAndTakenAwayAndTheirErrorsIgnored) {
  TGFileManager::lockFile("/file");
  EXPECT_TRUE(TGFileManager::isFileLocked("/file"));
  TGFileManager::unlockFile("/file");
  EXPECT_FALSE(TGFileManager::isFileLocked("/file"));
  fakes_.fileAttributes.refusal = foundation::systemError(EPERM, "/file");
  TGFileManager::lockFile("/file");
  TGFileManager::lockFile("/missing");
  TGFileManager::unlockFile(std::nullopt);
  EXPECT_FALSE(TGFileManager::isFileLocked("/missing"));
  EXPECT_FALSE(TGFileManager::isFileLocked(std::nullopt));
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerFinderTest, AReferenceFollowsItsItem) {
  const platform::FSRef reference = TGFileManager::stringToFSRef("/file");
  EXPECT_EQ(TGFileManager::stringWithFSRef(reference), "/file");
  fakes_.fileReferences.paths[0] = "/renamed";
  EXPECT_EQ(TGFileManager::stringWithFSRef(reference), "/renamed");
}

TEST_F(TGFileManagerFinderTest, NothingHasNoReference) {
  for (const TGFileManager::Path& path : std::vector<TGFileManager::Path>{"/missing", "", std::nullopt}) {
    EXPECT_EQ(TGFileManager::stringToFSRef(path), platform::FSRef());
  }
  EXPECT_EQ(TGFileManager::stringWithFSRef(platform::FSRef()), std::nullopt);
}

TEST_F(TGFileManagerFinderTest, RegisteringAnswersWhetherLaunchServicesTookIt) {
  EXPECT_TRUE(TGFileManager::registerApplicationWithLaunchServices("/Applications/X.app"));
  fakes_.applications.registration = platform::fnfErr;
  EXPECT_FALSE(TGFileManager::registerApplicationWithLaunchServices("/missing.app"));
  EXPECT_THAT(calls(), ElementsAre("register /Applications/X.app", "register /missing.app"));
  EXPECT_FALSE(TGFileManager::registerApplicationWithLaunchServices(std::nullopt));
}

TEST_F(TGFileManagerFinderTest, TheFileBrowserIsToldWhereTheItemIsNow) {
  EXPECT_EQ(TGFileManager::notifyFileSystemChanged("/file"), platform::noErr);
  const platform::FSRef reference = TGFileManager::stringToFSRef("/file");
  fakes_.fileReferences.paths[1] = "/renamed";
  EXPECT_EQ(SendFinderSyncEvent(reference), platform::noErr);
  EXPECT_THAT(calls(), ElementsAre("file browser /file", "file browser /renamed"));
}

TEST_F(TGFileManagerFinderTest, StatusesOfTheFileBrowserArePassedBack) {
  fakes_.fileBrowser.answer = platform::permErr;
  EXPECT_EQ(TGFileManager::notifyFileSystemChanged("/file"), platform::permErr);
  EXPECT_EQ(TGFileManager::notifyFileSystemChanged("/missing"), platform::fnfErr);
  EXPECT_EQ(TGFileManager::notifyFileSystemChanged(std::nullopt), platform::fnfErr);
  EXPECT_EQ(SendFinderSyncEvent(platform::FSRef()), platform::fnfErr);
  EXPECT_THAT(calls(), ElementsAre("file browser /file"));
}

}  // namespace
