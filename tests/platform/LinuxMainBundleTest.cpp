#include "platform/linux/LinuxMainBundle.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/linux/LinuxPropertyLists.h"
#include "platform/posix/PosixFiles.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;

class LinuxMainBundleTest : public ::testing::Test {
 protected:
  support::TemporaryFolder folder;
  PosixFileQueries files;
  LinuxPropertyLists lists;

  LinuxMainBundle bundleOf(const std::string& executable) { return {files, lists, folder / executable}; }
};

TEST_F(LinuxMainBundleTest, TheBundleIsWhatHoldsContentsMacOS) {
  auto bundle = bundleOf("Quillmend.app/Contents/MacOS/Quillmend");
  EXPECT_EQ(bundle.path(), folder / "Quillmend.app");
  EXPECT_EQ(bundle.executablePath(), folder / "Quillmend.app/Contents/MacOS/Quillmend");
}

TEST_F(LinuxMainBundleTest, AToolOutsideABundleHasItsFolder) {
  EXPECT_EQ(bundleOf("bin/tool").path(), folder / "bin");
  EXPECT_EQ(bundleOf("MacOS/tool").path(), folder / "MacOS");
  EXPECT_EQ(bundleOf("X.app/Contents/Helpers/tool").path(), folder / "X.app/Contents/Helpers");
}

TEST_F(LinuxMainBundleTest, TheRunningExecutableIsFoundThroughEveryLink) {
  LinuxMainBundle bundle(files, lists);
  EXPECT_EQ(bundle.executablePath(), fs::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(bundle.path(), fs::read_symlink("/proc/self/exe").parent_path().string());
}

TEST_F(LinuxMainBundleTest, TheInfoDictionaryIsEmptyUnlessItIsADictionary) {
  auto bundle = bundleOf("A.app/Contents/MacOS/A");
  EXPECT_EQ(bundle.infoDictionary(), PropertyList());
  folder.file("A.app/Contents/Info.plist", "garbage");
  EXPECT_EQ(bundle.infoDictionary(), PropertyList());
  folder.file("A.app/Contents/Info.plist", "<plist><string>x</string></plist>");
  EXPECT_EQ(bundle.infoDictionary(), PropertyList());
  folder.file("A.app/Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>com.example.A</string></dict></plist>");
  EXPECT_EQ(bundle.infoDictionary(),
            PropertyList(PropertyList::Dictionary{{"CFBundleIdentifier", "com.example.A"}}));
}

TEST_F(LinuxMainBundleTest, OnlyItsOwnIdentifierIsLoaded) {
  auto bundle = bundleOf("A.app/Contents/MacOS/A");
  EXPECT_EQ(bundle.pathForIdentifier("com.example.A"), std::nullopt);
  folder.file("A.app/Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>com.example.A</string></dict></plist>");
  EXPECT_EQ(bundle.pathForIdentifier("com.example.A"), folder / "A.app");
  EXPECT_EQ(bundle.pathForIdentifier("com.example.a"), std::nullopt);
}

TEST_F(LinuxMainBundleTest, AResourceIsFoundByNameAndType) {
  auto bundle = bundleOf("A.app/Contents/MacOS/A");
  EXPECT_EQ(bundle.pathForResource("Manual", "pdf"), std::nullopt);
  folder.file("A.app/Contents/Resources/Manual.pdf");
  folder.file("A.app/Contents/Resources/README");
  EXPECT_EQ(bundle.pathForResource("Manual", "pdf"), folder / "A.app/Contents/Resources/Manual.pdf");
  EXPECT_EQ(bundle.pathForResource("README", ""), folder / "A.app/Contents/Resources/README");
}

class LocalizedStringTest : public LinuxMainBundleTest {
 protected:
  static std::string strings(const std::string& text) {
    return "<plist><dict><key>Page Up</key><string>" + text + "</string></dict></plist>";
  }
  std::string pageUp() { return bundleOf("A.app/Contents/MacOS/A").localizedString("Page Up"); }
  void offer(const std::string& code, const std::string& text) {
    folder.file("A.app/Contents/Resources/" + code + ".lproj/Localizable.strings", text);
  }

  support::EnvironmentVariable all{"LC_ALL", std::nullopt};
  support::EnvironmentVariable messages{"LC_MESSAGES", std::nullopt};
  support::EnvironmentVariable language{"LANG", "de_CH.UTF-8"};
  support::EnvironmentVariable list{"LANGUAGE", std::nullopt};
};

TEST_F(LocalizedStringTest, WithoutATextTheKeyIsTheText) {
  EXPECT_EQ(pageUp(), "Page Up");
  offer("en", "<plist><dict><key>Home</key><string>Start</string></dict></plist>");
  EXPECT_EQ(pageUp(), "Page Up");
  offer("en", "garbage");
  EXPECT_EQ(pageUp(), "Page Up");
  offer("en", "<plist><dict><key>Page Up</key><true/></dict></plist>");
  EXPECT_EQ(pageUp(), "Page Up");
}

TEST_F(LocalizedStringTest, TheUsersLanguageIsTakenBeforeEnglish) {
  offer("en", strings("PgUp"));
  EXPECT_EQ(pageUp(), "PgUp");
  offer("de", strings("Bild auf"));
  EXPECT_EQ(pageUp(), "Bild auf");
  offer("de_CH", strings("Bild ue"));
  EXPECT_EQ(pageUp(), "Bild ue");
}

TEST_F(LocalizedStringTest, TheEnvironmentSaysTheLanguage) {
  offer("en", strings("PgUp"));
  offer("de", strings("Bild auf"));
  offer("fr", strings("Page haut"));
  const support::EnvironmentVariable french("LC_MESSAGES", "fr_FR.UTF-8");
  EXPECT_EQ(pageUp(), "Page haut");
  const support::EnvironmentVariable several("LANGUAGE", "it:de:fr");
  EXPECT_EQ(pageUp(), "Bild auf");
  const support::EnvironmentVariable plain("LC_ALL", "C");
  EXPECT_EQ(pageUp(), "PgUp");
}

TEST_F(LocalizedStringTest, ALanguageIsNoWayOutOfTheBundle) {
  folder.file("A.app/x.lproj/Localizable.strings", strings("from elsewhere"));
  const support::EnvironmentVariable outside("LANG", "../../x");
  EXPECT_EQ(pageUp(), "Page Up");
}

}  // namespace
}  // namespace platform
