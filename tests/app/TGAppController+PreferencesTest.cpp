#include "tests/app/ControllerTest.h"

namespace {

constexpr const char* kPreferences = "/Users/alice/Library/Preferences/";
constexpr const char* kOld = "com.apple.compressor.Compressor.plist";
constexpr const char* kNew = "com.apple.Compressor.plist";
constexpr const char* kRecycle = "recycle /Users/alice/Library/Preferences -> /Users/alice/.Trash: ";

class PreferencesTest : public ControllerTest {
 protected:
  void SetUp() override { startWithGUI(); }
  void make(const std::string& name) { mac.files.makeFile(kPreferences + name); }
  bool isTrashed(const std::string& name) {
    return mac.files.exists("/Users/alice/.Trash/" + name) && !mac.files.exists(kPreferences + name);
  }
};

}  // namespace

TEST_F(PreferencesTest, AllThreeFilesOfCompressor3GoToTheTrashInOrder) {
  make(kOld);
  make("com.apple.Compressor.CompressorSharedService.plist");
  make("com.apple.BatchMonitor.plist");
  make(kNew);
  controller->trashCompressorPrefs(ShowAlert::no);
  EXPECT_EQ(recorded(), text({kRecycle + std::string(kOld),
                              kRecycle + std::string("com.apple.Compressor.CompressorSharedService.plist"),
                              kRecycle + std::string("com.apple.BatchMonitor.plist")}));
  EXPECT_TRUE(isTrashed(kOld));
  EXPECT_TRUE(mac.files.exists(std::string(kPreferences) + kNew));
}

TEST_F(PreferencesTest, MissingFilesAreSkippedAndTheAlertIsShownAllTheSame) {
  controller->trashCompressorPrefs(ShowAlert::yes);
  EXPECT_EQ(recorded(),
            text({"alert Compressor preferences successfully trashed: Please relaunch Compressor."}));
}

TEST_F(PreferencesTest, Compressor4sOwnFileIsLookedForAndStays) {
  make(kNew);
  controller->trashCompressor4Prefs(ShowAlert::no);
  EXPECT_EQ(recorded(), text({kRecycle + std::string(kOld)}));  // which is not there, so nothing moves
  EXPECT_TRUE(mac.files.exists(std::string(kPreferences) + kNew));
  EXPECT_FALSE(mac.files.exists("/Users/alice/.Trash"));
}

TEST_F(PreferencesTest, WithOnlyCompressor3sFileCompressor4TrashesNothing) {
  make(kOld);
  controller->trashCompressor4Prefs(ShowAlert::no);
  EXPECT_EQ(recorded(), "");
  controller->trashCompressorPrefs(ShowAlert::no);
  EXPECT_TRUE(isTrashed(kOld));
}

TEST_F(PreferencesTest, WithBothFilesCompressor4TrashesCompressor3s) {
  make(kOld);
  make(kNew);
  controller->trashCompressor4Prefs(ShowAlert::yes);
  EXPECT_EQ(recorded(),
            text({kRecycle + std::string(kOld),
                  "alert Compressor 4 preferences successfully trashed: Please relaunch Compressor."}));
  EXPECT_TRUE(isTrashed(kOld));
  EXPECT_TRUE(mac.files.exists(std::string(kPreferences) + kNew));
}

TEST_F(PreferencesTest, TheLayoutGoesToTheTrashWithoutAWord) {
  const std::string folder = "/Users/alice/Library/Application Support/Compressor/Layouts";
  mac.files.makeFile(folder + "/Compressor.saved.moduleLayout", "layout");
  controller->resetWindowLayout(ShowAlert::no);
  EXPECT_EQ(recorded(),
            text({"recycle " + folder + " -> /Users/alice/.Trash: Compressor.saved.moduleLayout"}));
  EXPECT_TRUE(mac.files.exists("/Users/alice/.Trash/Compressor.saved.moduleLayout"));
  EXPECT_EQ(windowLog(), Lines{});
}

TEST_F(PreferencesTest, AResetLayoutIsConfirmedWhenAsked) {
  controller->resetWindowLayout(ShowAlert::yes);
  EXPECT_EQ(recorded(),
            text({"alert Compressor window layout successfully reset: Please relaunch Compressor."}));
}

TEST_F(PreferencesTest, ARefusedMoveIsNobodysBusiness) {
  make(kOld);
  mac.files.beforeChange = [](const std::string& change, const std::string& path) {
    return change == "move" ? std::optional(foundation::systemError(EACCES, path)) : std::nullopt;
  };
  controller->trashCompressorPrefs(ShowAlert::no);
  EXPECT_TRUE(mac.files.exists(std::string(kPreferences) + kOld));
  EXPECT_EQ(windowLog(), Lines{});
}

TEST_F(PreferencesTest, TheMenuActionsConfirm) {
  controller->menuTrashCompressorPrefs();
  controller->menuTrashCompressor4Prefs();
  EXPECT_EQ(recorded(),
            text({"alert Compressor preferences successfully trashed: Please relaunch Compressor.",
                  "alert Compressor 4 preferences successfully trashed: Please relaunch Compressor."}));
}
