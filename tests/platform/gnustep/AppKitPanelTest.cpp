#include "platform/macos/AppKitPanel.h"

#include <gtest/gtest.h>

#include "tests/platform/gnustep/Desktop.h"
#include "tests/support/XServer.h"

namespace platform {
namespace {

/// One display for all tests, ended with the process: AppKit does not outlive the one it has begun with.
void useDisplay() {
  static const auto* const display = new support::XServer;
  static_cast<void>(display);
}

TEST(AppKitPanelTest, WithoutAnApplicationNoPanelIsShown) {
  EXPECT_FALSE(runAppKitPanel("Title", "Message"));
}

TEST(AppKitPanelTest, ThePanelShowsBothTextsAndItsDefaultButtonAlone) {
  useDisplay();
  std::string shown;
  bool wasShown = false;
  gnustep::inApplication([&] {
    gnustep::pressDefaultButton(shown);
    wasShown = runAppKitPanel("Repair complete.", "Grüße");
    EXPECT_FALSE(runAppKitPanel("Title", "\xFF")) << "not UTF-8";
  });
  EXPECT_TRUE(wasShown);
  EXPECT_EQ(shown, "Repair complete., Grüße [OK]");
  EXPECT_FALSE(runAppKitPanel("Title", "Message")) << "the application has ended";
}

}  // namespace
}  // namespace platform
