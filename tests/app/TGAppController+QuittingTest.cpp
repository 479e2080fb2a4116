#include "tests/app/ControllerTest.h"

namespace {

constexpr const char* kOld = "com.apple.compressor.Compressor";
constexpr const char* kNew = "com.apple.Compressor";

class QuittingTest : public ControllerTest {
 protected:
  void SetUp() override { startWithoutGUI(); }
};

}  // namespace

TEST_F(QuittingTest, AskingAnApplicationThatListensSaysNothing) {
  controller->sendQuitEventToApp("Compressor");
  EXPECT_EQ(recorded(), text({"quit Compressor"}));
  EXPECT_EQ(taskLog(), Lines{});
}

TEST_F(QuittingTest, AFailureIsLoggedWithTwoBlanksAndReportedWithOne) {
  mac.applications.quitError = foundation::PropertyList::Dictionary{{"NSAppleScriptErrorNumber", -600}};
  mac.clientConnections.clients["TGProClientCallback"] = {
      .selectors = {"postErrorString:", "postErrorString:userInfo:", "taskErrorString:"}};
  controller->sendQuitEventToApp("Compressor");
  const std::string description = mac.applications.quitError->description();
  const Lines logged = taskLog();
  ASSERT_FALSE(logged.empty());
  EXPECT_EQ(logged.front(), "Unable to quit Compressor application  - {");
  EXPECT_THAT(
      mac.recorder.lines(),
      testing::Contains(testing::HasSubstr("Unable to quit Compressor application - " + description)));
}

TEST_F(QuittingTest, TheNameIsAlwaysCompressor) {
  controller->closeAppWithBundleID("com.apple.Batch");
  EXPECT_EQ(mac.recorder.lines().front(), "quit Compressor");
}

TEST_F(QuittingTest, AnApplicationThatDoesNotRunIsWaitedForOnce) {
  EXPECT_TRUE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(recorded(), text({"quit Compressor", "sleep 1s", "sleep 1s", "sleep 1s"}));
}

TEST_F(QuittingTest, TheFirstLookComesBehindTheFirstWait) {
  // Gone by the second look: had there been one before the wait, it would have needed two intervals.
  mac.applications.launched = {{kNew}, {}};
  EXPECT_TRUE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(mac.recorder.only({"sleep"}).size(), 6U);
}

TEST_F(QuittingTest, AnApplicationThatStaysIsGivenUpAfterTwentyOneLooks) {
  mac.applications.launched = {{kNew}};
  EXPECT_FALSE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(mac.recorder.only({"sleep"}).size(), 63U);
}

TEST_F(QuittingTest, AnApplicationThatGoesAtTheLastLookIsGone) {
  for (int look = 0; look < 20; ++look) mac.applications.launched.push_back({kNew});
  mac.applications.launched.emplace_back();
  EXPECT_TRUE(controller->closeAppWithBundleID(kNew));
}

TEST_F(QuittingTest, TheIdentifiersLettersMatter) {
  mac.applications.launched = {{kOld}};
  EXPECT_TRUE(controller->closeAppWithBundleID(kNew));
}

TEST_F(QuittingTest, TheRequestIsMadeOnTheMainThreadAndWaitedFor) {
  mac.mainThread.recordsWork = true;
  controller->closeAppWithBundleID(kNew);
  EXPECT_EQ(mac.recorder.lines()[0], "main (wait)");
  EXPECT_EQ(mac.recorder.lines()[1], "quit Compressor");
}

TEST_F(QuittingTest, ARequestToEndEndsTheWaitWithinASecond) {
  mac.applications.launched = {{kNew}};
  mac.interruption.signal = 15;
  mac.interruption.comesAfter = 4;
  EXPECT_FALSE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(mac.recorder.only({"sleep"}).size(), 5U);
}

TEST_F(QuittingTest, AnApplicationThatIsGoneWhenTheWaitIsEndedIsGone) {
  mac.interruption.signal = 15;
  EXPECT_TRUE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(recorded(), text({"quit Compressor", "sleep 1s"}));
}

TEST_F(QuittingTest, TheEndOfTheWindowsRepairEndsTheWaitWithinASecond) {
  startWithGUI();
  mac.applications.launched = {{kNew}};
  controller->endRepairAndTerminate();
  EXPECT_FALSE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(mac.recorder.only({"sleep"}).size(), 1U);
}

TEST_F(QuittingTest, TheWindowsWaitDoesNotHeedRequestsToEnd) {
  startWithGUI();
  mac.applications.launched = {{kNew}};
  mac.interruption.signal = 15;
  EXPECT_FALSE(controller->closeAppWithBundleID(kNew));
  EXPECT_EQ(mac.recorder.only({"sleep"}).size(), 63U);
}
