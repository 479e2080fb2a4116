#include <gtest/gtest.h>

#include "platform/macos/MacAuthorization.h"
#include "tests/macsdk/fakes/FakeAuthorization.h"

/// This program offers none of the functions that are looked up at run time, as systems do from which they
/// are gone.
namespace platform {
namespace {

TEST(MissingFunctionsTest, WithoutTheFunctionNothingIsStartedWithPrivileges) {
  MacAuthorization authorization;
  AuthorizationRef reference = nullptr;
  authorization.create(std::nullopt, kAuthorizationFlagDefaults, &reference);
  std::unique_ptr<CommunicationsPipe> pipe;
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, &pipe),
            errAuthorizationToolExecuteFailure);
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, nullptr),
            errAuthorizationToolExecuteFailure);
  EXPECT_EQ(::fakes::authorization().calls.size(), 1U);
}

}  // namespace
}  // namespace platform
