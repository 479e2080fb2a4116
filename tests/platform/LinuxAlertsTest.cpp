#include "platform/linux/LinuxAlerts.h"

#include <gmock/gmock.h>

#include "platform/fakes/FakePlatform.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

TEST(LinuxAlerts, TitleAndMessageGoToTheSystemConsole) {
  fakes::FakePlatform fake;
  LinuxAlerts().runPanel("100% done %@", "Please relaunch Compressor.");
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("100% done %@", "Please relaunch Compressor."));
}

TEST(LinuxAlerts, EmptyMessageIsNoLine) {
  fakes::FakePlatform fake;
  LinuxAlerts().runPanel("Title", "");
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("Title"));
}

}  // namespace
}  // namespace platform
