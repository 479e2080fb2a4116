#include "platform/macos/MacMainBundle.h"

#include <gtest/gtest.h>

#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using foundation::PropertyList;

class MacMainBundleTest : public ::testing::Test {
 protected:
  void SetUp() override { ::fakes::resetCoreFoundation(); }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  support::TemporaryFolder folder;
  MacMainBundle bundle;
};

TEST_F(MacMainBundleTest, TheBundleTellsItsPathsAndInformation) {
  const PropertyList information = PropertyList::Dictionary{{"CFBundleVersion", "2.1"}};
  ::fakes::setMainBundle({{"/Applications/Q.app", "/Applications/Q.app/Contents/MacOS/Q", information}});
  EXPECT_EQ(bundle.path(), "/Applications/Q.app");
  EXPECT_EQ(bundle.executablePath(), "/Applications/Q.app/Contents/MacOS/Q");
  EXPECT_EQ(bundle.infoDictionary(), information);
  EXPECT_EQ(bundle.infoDictionary(), information);  // borrowed, so not released by the first question
}

TEST_F(MacMainBundleTest, WhatTheSystemAddsToTheInformationIsLeftOut) {
  const PropertyList information = PropertyList::Dictionary{{"CFBundleName", "Quillmend"}};
  ::fakes::setMainBundle({{"/Applications/Q.app", "", information, {}, true}});
  EXPECT_EQ(bundle.infoDictionary(), information);
}

TEST_F(MacMainBundleTest, WithoutInformationTheDictionaryIsEmpty) {
  ::fakes::setMainBundle({{"/tmp", "/tmp/q", std::nullopt}});
  EXPECT_EQ(bundle.infoDictionary(), PropertyList());
}

TEST_F(MacMainBundleTest, WithoutABundleNothingIsKnown) {
  EXPECT_EQ(bundle.path(), "");
  EXPECT_EQ(bundle.executablePath(), "");
  EXPECT_EQ(bundle.infoDictionary(), PropertyList());
  EXPECT_EQ(bundle.pathForResource("a", "b"), std::nullopt);
}

TEST_F(MacMainBundleTest, ALoadedBundleIsFoundByItsIdentifier) {
  ::fakes::setBundle("com.vordenworks.Known", {"/Library/Known.framework", "", std::nullopt});
  EXPECT_EQ(bundle.pathForIdentifier("com.vordenworks.Known"), "/Library/Known.framework");
  EXPECT_EQ(bundle.pathForIdentifier("com.vordenworks.Other"), std::nullopt);
  EXPECT_EQ(bundle.pathForIdentifier("\xFF"), std::nullopt);
}

TEST_F(MacMainBundleTest, AResourceIsFoundWhereThereIsOne) {
  const std::string manual = folder.file("Q.app/Contents/Resources/Manual.pdf");
  ::fakes::setMainBundle({{folder / "Q.app", "", std::nullopt}});
  EXPECT_EQ(bundle.pathForResource("Manual", "pdf"), manual);
  EXPECT_EQ(bundle.pathForResource("Manual", "txt"), std::nullopt);
}

TEST_F(MacMainBundleTest, AKeyIsToldInTheBundlesWordsOrIsItsOwnText) {
  ::fakes::setMainBundle(
      {{"/tmp", "/tmp/q", std::nullopt, {{"Page Up", "Bild auf"}, {"\xE2\x87\x9E", "\xC3\xA4"}}}});
  EXPECT_EQ(bundle.localizedString("Page Up"), "Bild auf");
  EXPECT_EQ(bundle.localizedString("\xE2\x87\x9E"), "\xC3\xA4");
  EXPECT_EQ(bundle.localizedString("Page Down"), "Page Down");
  EXPECT_EQ(bundle.localizedString("\xFF"), "\xFF");
}

TEST_F(MacMainBundleTest, AKeyIsItsOwnTextWithoutABundleAndWithoutMemory) {
  EXPECT_EQ(bundle.localizedString("Page Up"), "Page Up");
  ::fakes::setMainBundle({{"/tmp", "/tmp/q", std::nullopt, {{"Page Up", "Bild auf"}}}});
  for (const int creation : {1, 2}) {
    ::fakes::failCreation(creation);
    EXPECT_EQ(bundle.localizedString("Page Up"), "Page Up") << creation;
    EXPECT_TRUE(::fakes::creationHasFailed()) << creation;
  }
}

}  // namespace
}  // namespace platform
