#include "platform/macos/MacAuthorization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "tests/macsdk/fakes/FakeAuthorization.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using ::testing::ElementsAre;

class MacAuthorizationTest : public ::testing::Test {
 protected:
  void SetUp() override { ::fakes::authorization() = {}; }

  static const std::vector<std::string>& calls() { return ::fakes::authorization().calls; }
  static void answer(const std::string& function, AuthorizationStatus status) {
    ::fakes::authorization().statuses[function] = status;
  }
  static int exitStatus() {
    int status = -1;
    ::waitpid(::fakes::authorization().children.back(), &status, 0);
    return WEXITSTATUS(status);
  }
  /// Whether the last program has ended and left no zombie, at the latest after a minute.
  static bool isCollected() {
    const pid_t child = ::fakes::authorization().children.back();
    for (int look = 0; look < 60000 && ::kill(child, 0) == 0; ++look) ::usleep(1000);
    return ::kill(child, 0) != 0;
  }
  static std::string outputOf(CommunicationsPipe& pipe) {
    std::string output;
    for (int character = pipe.getCharacter(); character >= 0; character = pipe.getCharacter()) {
      output += static_cast<char>(character);
    }
    return output;
  }

  ::fakes::FakePlatform fake;
  MacAuthorization authorization;
  AuthorizationRef reference = nullptr;
};

TEST_F(MacAuthorizationTest, CreatingAsksForNoRightsAndNoEnvironment) {
  EXPECT_EQ(authorization.create(std::nullopt, kAuthorizationFlagDefaults, &reference),
            errAuthorizationSuccess);
  EXPECT_NE(reference, nullptr);
  EXPECT_THAT(calls(), ElementsAre("AuthorizationCreate rights none environment none flags 0"));
}

TEST_F(MacAuthorizationTest, CredentialsAreTheirBytesWithoutATerminatingZero) {
  const AuthorizationEnvironment environment{"m\xC3\xBCller", "p w\n"};
  authorization.create(environment, kAuthorizationFlagExtendRights, &reference);
  EXPECT_THAT(calls(), ElementsAre("AuthorizationCreate rights none environment "
                                   "username=m\xC3\xBCller,password=p w\n flags 2"));
}

TEST_F(MacAuthorizationTest, AFailedCreationHandsOutNothing) {
  answer("AuthorizationCreate", errAuthorizationInternal);
  EXPECT_EQ(authorization.create(std::nullopt, 0, &reference), errAuthorizationInternal);
  EXPECT_EQ(reference, nullptr);
  answer("AuthorizationCopyPrivilegedReference", errAuthorizationInvalidRef);
  EXPECT_EQ(authorization.copyPrivilegedReference(0, &reference), errAuthorizationInvalidRef);
  EXPECT_EQ(reference, nullptr);
}

TEST_F(MacAuthorizationTest, APrivilegedParentsAuthorizationIsHandedOut) {
  EXPECT_EQ(authorization.copyPrivilegedReference(kAuthorizationFlagDefaults, &reference),
            errAuthorizationSuccess);
  EXPECT_NE(reference, nullptr);
  EXPECT_THAT(calls(), ElementsAre("AuthorizationCopyPrivilegedReference flags 0"));
}

TEST_F(MacAuthorizationTest, RightsAreAskedForByNameAndNotCopied) {
  authorization.create(std::nullopt, 0, &reference);
  constexpr auto flags = kAuthorizationFlagInteractionAllowed | kAuthorizationFlagPreAuthorize;
  authorization.copyRights(reference, {kAuthorizationRightAdmin}, std::nullopt, flags);
  authorization.copyRights(reference, {"a", "b"}, AuthorizationEnvironment{"u", "p"}, 0);
  EXPECT_THAT(calls(),
              ElementsAre(::testing::_,
                          "AuthorizationCopyRights ours rights system.privilege.admin environment none "
                          "flags 17",
                          "AuthorizationCopyRights ours rights a,b environment username=u,password=p "
                          "flags 0"));
}

class MacAuthorizationStatusTest : public MacAuthorizationTest,
                                   public ::testing::WithParamInterface<AuthorizationStatus> {};

TEST_P(MacAuthorizationStatusTest, StatusesArePassedOnAsTheyCome) {
  authorization.create(std::nullopt, 0, &reference);
  for (const char* function :
       {"AuthorizationCopyRights", "AuthorizationFree", "AuthorizationExecuteWithPrivileges"}) {
    answer(function, GetParam());
  }
  std::unique_ptr<CommunicationsPipe> pipe;
  EXPECT_EQ(authorization.copyRights(reference, {kAuthorizationRightAdmin}, std::nullopt, 0), GetParam());
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, &pipe), GetParam());
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {}, nullptr), GetParam());
  EXPECT_EQ(authorization.free(reference, 0), GetParam());
  EXPECT_EQ(pipe, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Statuses, MacAuthorizationStatusTest,
                         ::testing::Values(errAuthorizationInvalidRef, errAuthorizationDenied,
                                           errAuthorizationCanceled, errAuthorizationInteractionNotAllowed,
                                           errAuthorizationInternal, errAuthorizationToolExecuteFailure));

TEST_F(MacAuthorizationTest, WhatIsMadeIsGivenBackOnce) {
  authorization.create(std::nullopt, 0, &reference);
  EXPECT_EQ(authorization.free(reference, kAuthorizationFlagDefaults), errAuthorizationSuccess);
  EXPECT_EQ(::fakes::authorization().held, 0);
  EXPECT_EQ(calls().back(), "AuthorizationFree ours flags 0");
}

/// With a dialog that stands until somebody answers it.
class MacDialogTest : public MacAuthorizationTest {
 protected:
  struct Dialog {
    std::promise<void> shown;
    std::promise<AuthorizationStatus> answer;
  };
  static constexpr auto kFlags = kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights;

  void SetUp() override {
    MacAuthorizationTest::SetUp();
    authorization.create(std::nullopt, 0, &reference);
    // Owned by its own thread too, which may outlive the test.
    ::fakes::authorization().whenAsked = [dialog = dialog] {
      dialog->shown.set_value();
      return dialog->answer.get_future().get();
    };
  }
  AuthorizationStatus ask() {
    return authorization.copyRights(reference, {kAuthorizationRightAdmin}, std::nullopt, kFlags);
  }
  void waitUntilShown() const { dialog->shown.get_future().wait(); }

  std::shared_ptr<Dialog> dialog = std::make_shared<Dialog>();
};

TEST_F(MacDialogTest, WorkOfTheMainThreadIsServedUntilTheUserAnswers) {
  fake.mainThread.whenServing = [this] {
    waitUntilShown();
    dialog->answer.set_value(errAuthorizationDenied);
  };
  EXPECT_EQ(ask(), errAuthorizationDenied);
  EXPECT_EQ(calls().back(),
            "AuthorizationCopyRights ours rights system.privilege.admin environment none flags 3");
}

TEST_F(MacDialogTest, AnAnswerToAnotherThreadNeedsNoMainThread) {
  fake.mainThread.current = false;
  fake.mainThread.whenServing = [] { FAIL() << "this is not the main thread"; };
  dialog->answer.set_value(errAuthorizationSuccess);
  EXPECT_EQ(ask(), errAuthorizationSuccess);
}

TEST_F(MacDialogTest, WhatTheUserWasAskedAboutIsGivenBackAfterwards) {
  dialog->answer.set_value(errAuthorizationSuccess);
  EXPECT_EQ(ask(), errAuthorizationSuccess);
  authorization.free(reference, 0);
  EXPECT_EQ(::fakes::authorization().held, 0);
}

TEST_F(MacDialogTest, WhoWaitsForADialogGoesOnWhenNobodyIsToBeAskedAnyMore) {
  fake.mainThread.whenServing = [this] {
    waitUntilShown();
    authorization.stopAsking();
  };
  EXPECT_EQ(ask(), errAuthorizationCanceled);
  EXPECT_EQ(authorization.free(reference, 0), errAuthorizationSuccess);
  EXPECT_EQ(::fakes::authorization().held, 1) << "the system still asks about it";
  dialog->answer.set_value(errAuthorizationSuccess);
}

TEST_F(MacDialogTest, AnotherThreadThatWaitsForADialogGoesOnToo) {
  fake.mainThread.current = false;
  std::thread stopping([this] {
    waitUntilShown();
    authorization.stopAsking();
  });
  EXPECT_EQ(ask(), errAuthorizationCanceled);
  stopping.join();
  dialog->answer.set_value(errAuthorizationSuccess);
}

TEST_F(MacDialogTest, NobodyIsAskedAfterwardsAndWhatIsHeldStays) {
  ::fakes::authorization().whenAsked = []() -> OSStatus { throw std::logic_error("somebody was asked"); };
  authorization.stopAsking();
  EXPECT_EQ(ask(), errAuthorizationSuccess);
  answer("AuthorizationCopyRights", errAuthorizationInteractionNotAllowed);
  EXPECT_EQ(ask(), errAuthorizationCanceled);
  answer("AuthorizationCopyRights", errAuthorizationDenied);
  EXPECT_EQ(ask(), errAuthorizationDenied);
  EXPECT_EQ(calls().back(),
            "AuthorizationCopyRights ours rights system.privilege.admin environment none flags 2");
}

const std::vector<std::string> kNastyArguments = {
    "-c",  R"(for each; do printf '<%s>' "$each"; done)", "name", "", " b ", "$(id)", "'\"", "line\nbreak",
    "\xFF"};
constexpr const char* kNastyOutput = "<>< b ><$(id)><'\"><line\nbreak><\xFF>";

TEST_F(MacAuthorizationTest, TheOutputOfAProgramArrivesWhole) {
  authorization.create(std::nullopt, 0, &reference);
  std::unique_ptr<CommunicationsPipe> pipe;
  ASSERT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, kNastyArguments, &pipe),
            errAuthorizationSuccess);
  ASSERT_NE(pipe, nullptr);
  EXPECT_EQ(outputOf(*pipe), kNastyOutput);
  EXPECT_EQ(exitStatus(), 0);
  EXPECT_EQ(calls().back(), "AuthorizationExecuteWithPrivileges ours /bin/sh flags 0");
}

TEST_F(MacAuthorizationTest, WithoutAPipeAProgramGetsItsArgumentsAndItsStreamsAreTheNullDevice) {
  const support::TemporaryFolder folder;
  std::vector<std::string> arguments = kNastyArguments;
  arguments[1] = "{ " + arguments[1] + "; } >'" + (folder / "written") +
                 "'; streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1); echo \"$streams\" >'" +
                 (folder / "streams") + "'";
  ASSERT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, arguments, nullptr),
            errAuthorizationSuccess);
  EXPECT_TRUE(isCollected());
  EXPECT_EQ(folder.content("written"), kNastyOutput);
  EXPECT_EQ(folder.content("streams"), "/dev/null\n/dev/null\n");
}

TEST_F(MacAuthorizationTest, WithoutAPipeTheProgramItselfRunsInTheEndAndLeavesNoZombie) {
  const support::TemporaryFolder folder;
  ASSERT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0,
                                                {"-c", "echo $$ >'" + (folder / "process") + "'"}, nullptr),
            errAuthorizationSuccess);
  EXPECT_TRUE(isCollected());
  EXPECT_EQ(folder.content("process"), std::to_string(::fakes::authorization().children.back()) + "\n");
}

TEST_F(MacAuthorizationTest, WhatIsNoProgramIsNotStarted) {
  const support::TemporaryFolder folder;
  for (const std::string& path : {folder.file("text"), folder.path(), folder / "absent"}) {
    EXPECT_EQ(authorization.executeWithPrivileges(reference, path, 0, {}, nullptr),
              errAuthorizationToolExecuteFailure)
        << path;
  }
  EXPECT_THAT(calls(), ElementsAre());
}

TEST_F(MacAuthorizationTest, WhatCannotBePassedOnWholeIsNotStarted) {
  const std::string zero("a\0b", 3);
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/sh", 0, {zero}, nullptr),
            errAuthorizationToolExecuteFailure);
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "/bin/" + zero, 0, {}, nullptr),
            errAuthorizationToolExecuteFailure);
  EXPECT_EQ(authorization.executeWithPrivileges(reference, "sh", 0, {}, nullptr),
            errAuthorizationToolExecuteFailure);
  EXPECT_THAT(calls(), ElementsAre());
}

}  // namespace
}  // namespace platform
