#include "tests/app/ControllerTest.h"

namespace {

using Dictionary = foundation::PropertyList::Dictionary;

constexpr const char* kStudio = "/Applications/Final Cut Studio/Compressor.app";
constexpr const char* kCompressor = "/Applications/Compressor.app";

class DetectionTest : public ControllerTest {
 protected:
  void SetUp() override { startWithoutGUI(); }

  std::optional<std::string> versionOf(const foundation::PropertyList& content) {
    makeVersionFileWith(kCompressor, content);
    return controller->versionFromPath(kCompressor);
  }
};

}  // namespace

TEST_F(DetectionTest, NothingInstalledGivesNoVersion) {
  EXPECT_EQ(controller->compressorVersions(), Lines{});
}

TEST_F(DetectionTest, LooksInTheStudioThenInApplicationsThenForTheTwoIdentifiers) {
  makeVersionFile(kStudio, "3.0.5");
  makeVersionFile(kCompressor, "4.0.1");
  makeVersionFile("/a/Compressor.app", "3.5.2");
  makeVersionFile("/b/Compressor.app", "4.1");
  mac.applications.paths = {{"com.apple.compressor.Compressor", "/a/Compressor.app"},
                            {"com.apple.Compressor", "/b/Compressor.app"}};
  EXPECT_EQ(controller->compressorVersions(), (Lines{"3.0", "4.0", "3.5", "4.1"}));
}

TEST_F(DetectionTest, OneCopyFoundInTwoWaysCountsOnce) {
  makeVersionFile(kCompressor, "4.0");
  mac.applications.paths = {{"com.apple.compressor.Compressor", kCompressor},
                            {"com.apple.Compressor", kCompressor}};
  EXPECT_EQ(controller->compressorVersions(), Lines{"4.0"});
}

TEST_F(DetectionTest, TwoCopiesOfOneVersionCountTwice) {
  makeVersionFile(kStudio, "3.5.1");
  makeVersionFile(kCompressor, "3.5.3");
  EXPECT_EQ(controller->compressorVersions(), (Lines{"3.5", "3.5"}));
}

TEST_F(DetectionTest, AVersionIsItsMajorAndMinorNumber) {
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleShortVersionString", "3.5.2"}}), "3.5");
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleShortVersionString", "4.1"}}), "4.1");
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleShortVersionString", "10.20.30.40"}}), "10.20");
}

TEST_F(DetectionTest, AVersionOfOneNumberIsNone) {
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleShortVersionString", "4"}}), std::nullopt);
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleShortVersionString", ""}}), std::nullopt);
}

TEST_F(DetectionTest, TheBundleVersionStandsInForAMissingShortOne) {
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleVersion", "3.0"}}), "3.0");
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleVersion", "3.0"}, {"CFBundleShortVersionString", "3.5"}}), "3.5");
}

TEST_F(DetectionTest, AVersionThatIsNoStringIsNone) {
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleShortVersionString", 3.5}, {"CFBundleVersion", "3.0"}}),
            std::nullopt);
  EXPECT_EQ(versionOf(Dictionary{{"CFBundleVersion", Dictionary{}}}), std::nullopt);
  EXPECT_EQ(versionOf(Dictionary{}), std::nullopt);
  EXPECT_EQ(versionOf(foundation::PropertyList::Array{"3.5"}), std::nullopt);
}

TEST_F(DetectionTest, TheInfoDictionaryIsNeverRead) {
  mac.files.makeFile(std::string(kCompressor) + "/Contents/Info.plist",
                     "<plist><dict><key>CFBundleVersion</key><string>4.0</string></dict></plist>");
  EXPECT_EQ(controller->versionFromPath(kCompressor), std::nullopt);
  makeVersionFile(kCompressor, "3.5");
  EXPECT_EQ(controller->versionFromPath(kCompressor), "3.5");
}

TEST_F(DetectionTest, ADamagedVersionFileMakesItsCopyIgnored) {
  const std::string file = std::string(kCompressor) + "/Contents/version.plist";
  for (const char* content : {"", "no property list", "<plist><dict><key>CFBundle", "bplist00\x01"}) {
    mac.files.makeFile(file, content);
    EXPECT_EQ(controller->versionFromPath(kCompressor), std::nullopt) << content;
  }
  std::filesystem::remove(mac.files.real(file));
  mac.files.makeFolder(file);
  EXPECT_EQ(controller->versionFromPath(kCompressor), std::nullopt);
  EXPECT_EQ(controller->compressorVersions(), Lines{});
}

TEST_F(DetectionTest, TheBundleIsFoundByItsIdentifierElseByTheProgramsPlace) {
  mac.mainBundle.bundlePath = "/elsewhere/Quillmend.app";
  EXPECT_EQ(controller->currentBundlePath(), "/Applications/Quillmend.app");
  mac.mainBundle.loadedBundles.clear();
  EXPECT_EQ(controller->currentBundlePath(), "/elsewhere/Quillmend.app");
  EXPECT_EQ(controller->currentExePath(), "/elsewhere/Quillmend.app/Contents/MacOS/Quillmend");
}

TEST_F(DetectionTest, AToolThatEndsWellHasNoFailureOutput) {
  mac.subprocesses.runs["/usr/bin/tool"] = {.status = 0, .output = "fine"};
  EXPECT_EQ(controller->returnTaskOutput("/usr/bin/tool", {}), std::nullopt);
}

TEST_F(DetectionTest, AToolThatFailsHasItsOutputReturned) {
  mac.subprocesses.runs["/usr/bin/tool -x"] = {.status = 2, .output = "broken\n", .error = "lost"};
  EXPECT_EQ(controller->returnTaskOutput("/usr/bin/tool", {"-x"}), "broken\n");
  mac.subprocesses.runs["/usr/bin/tool"] = {.status = 1};
  EXPECT_EQ(controller->returnTaskOutput("/usr/bin/tool", {}), "");
}

TEST_F(DetectionTest, AToolsErrorsGoToTheNullDevice) {
  controller->returnTaskOutput("/usr/bin/tool", {}).reset();
  ASSERT_EQ(mac.subprocesses.created.size(), 1U);
  EXPECT_EQ(mac.subprocesses.created[0].standardOutput, platform::Stream::pipe);
  EXPECT_EQ(mac.subprocesses.created[0].standardError, platform::Stream::nullDevice);
}

TEST_F(DetectionTest, AToolIsWaitedFor) {
  mac.subprocesses.recordsWaits = true;
  controller->returnTaskOutput("/usr/bin/tool", {}).reset();
  EXPECT_EQ(recorded(), text({"run /usr/bin/tool", "wait /usr/bin/tool"}));
}

TEST_F(DetectionTest, AToolThatCannotBeRunIsLogged) {
  mac.subprocesses.runs["/usr/bin/tool"].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "launch path not accessible");
  EXPECT_EQ(controller->returnTaskOutput("/usr/bin/tool", {}), std::nullopt);
  EXPECT_EQ(
      taskLog().back(),
      "Exception in -[TGAppController returnTaskOutputWithTool:arguments:]. NSInvalidArgumentException - "
      "launch path not accessible.");
}

TEST_F(DetectionTest, TheComputerHasANameWhenBothToolsEndWell) {
  EXPECT_TRUE(controller->checkComputerName());
  EXPECT_EQ(recorded(),
            text({"run /usr/sbin/scutil --get ComputerName", "run /usr/sbin/scutil --get LocalHostName"}));
}

TEST_F(DetectionTest, EitherMissingNameIsAMissingName) {
  mac.subprocesses.runs["/usr/sbin/scutil --get ComputerName"] = {.status = 1, .output = "not set"};
  EXPECT_FALSE(controller->checkComputerName());
  mac.subprocesses.runs = {{"/usr/sbin/scutil --get LocalHostName", {.status = 1}}};
  EXPECT_FALSE(controller->checkComputerName());
}

TEST_F(DetectionTest, BothNamesAreAskedForEvenWhenTheFirstIsMissing) {
  mac.subprocesses.runs["/usr/sbin/scutil --get ComputerName"] = {.status = 1};
  EXPECT_FALSE(controller->checkComputerName());
  EXPECT_EQ(mac.recorder.lines().size(), 2U);
}

TEST_F(DetectionTest, AToolThatCannotBeRunSaysNothingAgainstTheName) {
  mac.subprocesses.runs["/usr/sbin/scutil"].launchFailure =
      foundation::Exception("NSGenericException", "gone");
  EXPECT_TRUE(controller->checkComputerName());
}
