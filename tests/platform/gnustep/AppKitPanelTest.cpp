#include "platform/macos/AppKitPanel.h"

#include <gtest/gtest.h>

#include "tests/platform/gnustep/Desktop.h"
#include "tests/platform/gnustep/LiveObjects.h"
#include "tests/support/XServer.h"

namespace platform {
namespace {

TEST(AppKitPanelTest, WithoutAnApplicationNoPanelIsShown) {
  EXPECT_FALSE(runAppKitPanel("Title", "Message"));
}

TEST(AppKitPanelTest, ThePanelShowsBothTextsAndItsDefaultButtonAlone) {
  const support::XServer display;
  std::string shown;
  bool wasShown = false;
  gnustep::inApplication([&] {
    gnustep::pressDefaultButton(shown);
    wasShown = runAppKitPanel("Repair complete.", "Grüße");
  });
  EXPECT_TRUE(wasShown);
  EXPECT_EQ(shown, "Repair complete., Grüße [OK]");
  EXPECT_FALSE(runAppKitPanel("Title", "Message")) << "the application has ended";
}

TEST(AppKitPanelTest, TextsThatAreNotUtf8AreNotShown) {
  const support::XServer display;
  bool wasShown = true;
  gnustep::inApplication([&] { wasShown = runAppKitPanel("Title", "\xFF"); });
  EXPECT_FALSE(wasShown);
}

}  // namespace
}  // namespace platform
