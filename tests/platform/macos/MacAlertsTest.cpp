#include "platform/macos/MacAlerts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fakes/FakePlatform.h"
#include "tests/macsdk/fakes/FakeAppKit.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

class MacAlertsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::resetAppKit();
  }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  ::fakes::FakePlatform fake;
  MacAlerts alerts;
};

TEST_F(MacAlertsTest, TheSystemsPanelStaysUntilItIsDismissed) {
  alerts.runPanel("Repair finished", "");
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(),
              ElementsAre("alert Repair finished:  timeout 0.000000 flags 1"));
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre());
}

TEST_F(MacAlertsTest, WhereNoPanelCanBeShownTheTextsGoToTheSystemConsole) {
  ::fakes::setAlertStatus(-1);
  alerts.runPanel("Title", "Message");
  alerts.runPanel("Title alone", "");
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("Title", "Message", "Title alone"));
}

TEST_F(MacAlertsTest, TextThatIsNotUtf8IsNotLost) {
  alerts.runPanel("Title", "\xFF");
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("Title", "\xFF"));
}

TEST_F(MacAlertsTest, AppKitsPanelIsUsedWhileItRunsTheApplication) {
  struct : Alerts {
    void runPanel(const std::string&, const std::string&) override { FAIL() << "AppKit has its own"; }
  } panels;
  alerts.setPanels(&panels);
  ::fakes::setApplicationRuns(true);
  alerts.runPanel("Title", "Message");
  EXPECT_THAT(::fakes::takePanels(), ElementsAre("Title: Message"));
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(), ElementsAre());
}

TEST_F(MacAlertsTest, TheWindowsPanelsAreUsedWhileThereAreSome) {
  struct : Alerts {
    void runPanel(const std::string& title, const std::string&) override { shown.push_back(title); }
    std::vector<std::string> shown;
  } panels;
  alerts.setPanels(&panels);
  alerts.runPanel("Title", "Message");
  alerts.setPanels(nullptr);
  EXPECT_THAT(panels.shown, ElementsAre("Title"));
  EXPECT_THAT(::fakes::takeCoreFoundationCalls(), ElementsAre());
}

}  // namespace
}  // namespace platform
