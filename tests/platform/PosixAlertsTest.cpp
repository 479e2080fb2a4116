#include "platform/posix/PosixAlerts.h"

#include <gmock/gmock.h>

#include "platform/fakes/FakePlatform.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

TEST(PosixAlerts, TitleAndMessageGoToTheSystemConsole) {
  fakes::FakePlatform fake;
  PosixAlerts().runPanel("100% done %@", "Please relaunch Compressor.");
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("100% done %@", "Please relaunch Compressor."));
}

TEST(PosixAlerts, EmptyMessageIsNoLine) {
  fakes::FakePlatform fake;
  PosixAlerts().runPanel("Title", "");
  EXPECT_THAT(fake.systemConsole.messages(), ElementsAre("Title"));
}

}  // namespace
}  // namespace platform
