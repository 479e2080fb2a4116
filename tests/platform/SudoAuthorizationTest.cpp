#include "platform/linux/SudoAuthorization.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/posix/ProcessTable.h"
#include "tests/support/AsUser.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/NoMoreThreads.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestAccount.h"

namespace platform {
namespace {

using support::AsUser;
using support::EnvironmentVariable;
using support::runProgram;
using support::TemporaryFolder;
using support::TestAccount;

constexpr const char* kPassword = "pass word'\"$";
constexpr const char* kEverything = "ALL=(ALL:ALL) ALL";
constexpr AuthorizationFlags kAsking = 19;
constexpr AuthorizationFlags kNotAsking = 18;

const std::vector<std::string>& administrator() {
  static const std::vector<std::string> rights = {kAuthorizationRightAdmin};
  return rights;
}

std::string readAll(CommunicationsPipe& pipe) {
  std::string text;
  for (int byte = pipe.getCharacter(); byte != -1; byte = pipe.getCharacter()) {
    text.push_back(static_cast<char>(byte));
  }
  return text;
}

/// Whether this process gets rid of its children, ended ones included, within a few seconds.
bool hasNoChildrenSoon() {
  for (int attempt = 0; attempt < 500; ++attempt) {
    bool any = false;
    for (const ProcessInfo& process : ProcessTable().processes()) any = any || process.parent == getpid();
    if (!any) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

/// Whether a file is made within a few seconds.
bool existsSoon(const std::string& path) {
  for (int attempt = 0; attempt < 500 && !std::filesystem::exists(path); ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return std::filesystem::exists(path);
}

/// Whether a file gets a content within a few seconds.
bool hasContentSoon(const std::string& path) {
  for (int attempt = 0; attempt < 500; ++attempt) {
    std::error_code error;
    if (std::filesystem::file_size(path, error) > 0 && !error) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

/// The service as the test's account uses it, with a real sudo.
class SudoAuthorizationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root, to make an account";
    if (access("/usr/bin/sudo", X_OK) != 0) GTEST_SKIP() << "needs sudo";
    folder.makeAccessibleToAll();
    account = std::make_unique<TestAccount>(kPassword);
    fake.users.name = account->name();
    fake.mainBundle.bundlePath = folder / "Quillmend.app";
  }

  void asAccount(const std::function<void()>& part) const { AsUser::run(account->id(), part); }

  /// A shell script that everybody may run.
  std::string script(const std::string& name, const std::string& text) const {
    const std::string path = folder.file(name, "#!/bin/sh\n" + text + "\n");
    EXPECT_EQ(chmod(path.c_str(), 0755), 0);
    return path;
  }
  AuthorizationRef reference() {
    AuthorizationRef made = nullptr;
    EXPECT_EQ(sudo.create(std::nullopt, kAuthorizationFlagDefaults, &made), errAuthorizationSuccess);
    EXPECT_NE(made, nullptr);
    return made;
  }
  AuthorizationStatus give(AuthorizationRef to, const std::string& password) {
    return sudo.copyRights(to, administrator(), AuthorizationEnvironment{account->name(), password},
                           kNotAsking);
  }
  AuthorizationStatus ask(AuthorizationRef to) {
    return sudo.copyRights(to, administrator(), std::nullopt, kAsking);
  }
  AuthorizationStatus run(AuthorizationRef with, const std::string& path,
                          const std::vector<std::string>& arguments,
                          std::unique_ptr<CommunicationsPipe>* pipe = nullptr) {
    return sudo.executeWithPrivileges(with, path, kAuthorizationFlagDefaults, arguments, pipe);
  }
  /// Gets rights from a ticket that is there already.
  AuthorizationStatus probe(AuthorizationRef to) {
    return sudo.copyRights(to, administrator(), std::nullopt, kNotAsking);
  }
  /// An askpass program that answers with a text, and says on its standard error what the bundle's does.
  [[nodiscard]] std::string askpassLikeTheBundles(const std::string& answer) const {
    return script("ask", "echo 'askpass: asks' >&2; echo 'askpass: answered 1469598103934665603' >&2; cat '" +
                             folder.file("password", answer + "\n") + "'");
  }
  [[nodiscard]] std::vector<std::string> told() const { return fake.systemConsole.messages(); }
  std::string outputOf(AuthorizationRef with, const std::string& path,
                       const std::vector<std::string>& arguments) {
    std::unique_ptr<CommunicationsPipe> pipe;
    EXPECT_EQ(run(with, path, arguments, &pipe), errAuthorizationSuccess);
    return pipe ? readAll(*pipe) : "nothing";
  }

  fakes::FakePlatform fake;
  TemporaryFolder folder;
  std::unique_ptr<TestAccount> account;
  SudoAuthorization sudo;
};

TEST_F(SudoAuthorizationTest, RightPasswordGivesRightsToRunProgramsAsRoot) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n");
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n") << "the rights stay";
    EXPECT_TRUE(hasNoChildrenSoon());
  });
}

TEST_F(SudoAuthorizationTest, WrongPasswordIsDeniedAlsoWhenRightsAreHeld) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    EXPECT_EQ(give(held, "wrong"), errAuthorizationDenied);
    EXPECT_EQ(run(held, "/bin/true", {}), errAuthorizationDenied);
  });
}

TEST_F(SudoAuthorizationTest, PasswordThatIsNotOneLineIsDenied) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, std::string("wrong\n") + kPassword), errAuthorizationDenied);
    EXPECT_EQ(give(held, std::string(2000, 'x')), errAuthorizationDenied);
    EXPECT_EQ(give(held, ""), errAuthorizationDenied);
  });
}

TEST_F(SudoAuthorizationTest, AccountThatSudoersDoesNotListIsDenied) {
  asAccount([this] { EXPECT_EQ(give(reference(), kPassword), errAuthorizationDenied); });
}

TEST_F(SudoAuthorizationTest, AnotherUsersNameAndOtherRightsAreDenied) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(sudo.copyRights(held, administrator(), AuthorizationEnvironment{"root", kPassword}, kNotAsking),
              errAuthorizationDenied);
    EXPECT_EQ(sudo.copyRights(held, {"system.preferences"},
                              AuthorizationEnvironment{account->name(), kPassword}, kNotAsking),
              errAuthorizationDenied);
  });
}

TEST_F(SudoAuthorizationTest, FreeingEndsTheRights) {
  account->allow(kEverything);
  asAccount([this] {
    const auto first = reference();
    EXPECT_EQ(give(first, kPassword), errAuthorizationSuccess);
    EXPECT_EQ(sudo.free(first, kAuthorizationFlagDefaults), errAuthorizationSuccess);
    EXPECT_EQ(run(first, "/bin/true", {}), errAuthorizationInvalidRef);
    EXPECT_EQ(run(reference(), "/bin/true", {}), errAuthorizationDenied);
    EXPECT_EQ(probe(reference()), errAuthorizationInteractionNotAllowed);
    EXPECT_EQ(sudo.free(first, kAuthorizationFlagDefaults), errAuthorizationInvalidRef);
  });
}

TEST_F(SudoAuthorizationTest, AReferenceGivenBackIsNeverGivenToAnother) {
  asAccount([this] {
    const auto first = reference();
    EXPECT_EQ(sudo.free(first, kAuthorizationFlagDefaults), errAuthorizationSuccess);
    for (int others = 0; others < 1000; ++others) EXPECT_NE(reference(), first);
    EXPECT_EQ(sudo.free(first, kAuthorizationFlagDefaults), errAuthorizationInvalidRef);
  });
}

TEST_F(SudoAuthorizationTest, AProgramJustStartedRunsAlthoughTheRightsAreGivenBackAtOnce) {
  account->allow(kEverything);
  asAccount([this] {
    for (int round = 0; round < 5; ++round) {
      const auto held = reference();
      EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
      const std::string done = folder / ("done" + std::to_string(round));
      EXPECT_EQ(run(held, "/usr/bin/touch", {done}), errAuthorizationSuccess);
      EXPECT_EQ(sudo.free(held, kAuthorizationFlagDefaults), errAuthorizationSuccess);
      EXPECT_TRUE(existsSoon(done)) << "round " << round;
    }
  });
}

TEST_F(SudoAuthorizationTest, RightsThatAreLostMeanwhileAreToldFromAProgramThatFails) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    EXPECT_EQ(run(held, "/bin/false", {}), errAuthorizationSuccess);
    EXPECT_EQ(runProgram({"/usr/bin/sudo", "-K"}).status, 0);
    EXPECT_EQ(run(held, "/bin/true", {}), errAuthorizationDenied);
  });
}

TEST_F(SudoAuthorizationTest, ArgumentsArriveByteForByte) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    const std::string printer = "/usr/bin/printf";
    EXPECT_EQ(outputOf(held, printer, {"[%s]", "", "a b ", "\"'\n\t\\$HOME*", "\xFF\xC3", "A=B", "-n", "--"}),
              "[][a b ][\"'\n\t\\$HOME*][\xFF\xC3][A=B][-n][--]");
  });
}

TEST_F(SudoAuthorizationTest, OutputIsReadToItsEnd) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    const auto text =
        outputOf(held, "/bin/sh", {"-c", "head -c 300000 /dev/zero; sleep 0.1; printf '\\377end'"});
    EXPECT_EQ(text.size(), 300'004U);
    EXPECT_TRUE(
        text.ends_with("\xFF"
                       "end"));
  });
}

TEST_F(SudoAuthorizationTest, ProgramIsNotWaitedForAndEndsAlsoWhenItsOutputIsNotRead) {
  account->allow(kEverything);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    const std::string done = folder / "done";
    std::unique_ptr<CommunicationsPipe> pipe;
    EXPECT_EQ(run(held, "/bin/sh", {"-c", "sleep 0.3; head -c 300000 /dev/zero && touch " + done}, &pipe),
              errAuthorizationSuccess);
    EXPECT_FALSE(std::filesystem::exists(done));
    pipe.reset();
    EXPECT_TRUE(existsSoon(done));
    EXPECT_TRUE(hasNoChildrenSoon());
  });
}

TEST_F(SudoAuthorizationTest, MissingProgramsAreNotStarted) {
  account->allow(kEverything);
  const std::string noProgram = folder.file("text");
  asAccount([&] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    for (const std::string& path : {std::string("/no/such/program"), std::string("true"), std::string(),
                                    std::string("/usr/bin"), noProgram}) {
      EXPECT_EQ(run(held, path, {}), errAuthorizationToolExecuteFailure) << path;
    }
  });
}

TEST_F(SudoAuthorizationTest, ProgramThatSudoersDoesNotAllowIsDenied) {
  account->allow("ALL=(ALL:ALL) /usr/bin/id");
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n");
    EXPECT_EQ(run(held, "/bin/true", {}), errAuthorizationDenied);
    EXPECT_THAT(fake.systemConsole.messages(),
                ::testing::ElementsAre("No administrator rights: /bin/true is not allowed to be started"));
  });
}

TEST_F(SudoAuthorizationTest, AskpassProgramOfTheBundleIsAskedFirst) {
  account->allow(kEverything);
  const auto fromBundle =
      script("Quillmend.app/Contents/SharedSupport/askpass",
             "echo asked >> " + folder.path() + "/log; cat " + folder.path() + "/password");
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  folder.file("password", std::string(kPassword) + "\n");
  const EnvironmentVariable other("SUDO_ASKPASS", "/bin/false");
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(ask(held), errAuthorizationSuccess);
    EXPECT_EQ(ask(held), errAuthorizationSuccess);
    EXPECT_EQ(folder.content("log"), "asked\n") << "what is held is not asked for again";
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n");
    EXPECT_EQ(runProgram({"/usr/bin/sudo", "-K"}).status, 0);
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n");
    EXPECT_EQ(folder.content("log"), "asked\nasked\n") << "rights that ran out are asked for again";
    EXPECT_THAT(told(), ::testing::IsEmpty()) << "nothing was refused";
  });
}

TEST_F(SudoAuthorizationTest, AskpassProgramOfTheEnvironmentIsAskedElse) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", script("ask", "cat " + (folder / "password")));
  folder.file("password", std::string(kPassword) + "\n");
  asAccount([this] { EXPECT_EQ(ask(reference()), errAuthorizationSuccess); });
}

TEST_F(SudoAuthorizationTest, DialogThatIsCancelledIsTold) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", script("ask", "exit 1"));
  const EnvironmentVariable language("LC_ALL", "de_DE.UTF-8");
  asAccount([this] {
    EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    EXPECT_THAT(told(), ::testing::IsEmpty()) << "who cancels it knows";
  });
}

TEST_F(SudoAuthorizationTest, WrongPasswordInTheDialogIsDenied) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", script("ask", "echo wrong"));
  asAccount([this] {
    EXPECT_EQ(ask(reference()), errAuthorizationDenied);
    EXPECT_THAT(fake.systemConsole.messages(), ::testing::IsEmpty()) << "the dialog has told it";
  });
}

TEST_F(SudoAuthorizationTest, WhySudoRefusesAnAccountThatItDoesNotListIsTold) {
  const EnvironmentVariable named("SUDO_ASKPASS", script("ask", "cat " + (folder / "password")));
  folder.file("password", std::string(kPassword) + "\n");
  const auto isTold = ::testing::AllOf(::testing::StartsWith("No administrator rights: "),
                                       ::testing::HasSubstr(account->name()));
  asAccount([&] {
    EXPECT_EQ(ask(reference()), errAuthorizationDenied);
    EXPECT_THAT(fake.systemConsole.messages(), ::testing::ElementsAre(isTold));
    EXPECT_EQ(give(reference(), kPassword), errAuthorizationDenied);
    EXPECT_THAT(fake.systemConsole.messages(), ::testing::ElementsAre(isTold, isTold));
  });
}

TEST_F(SudoAuthorizationTest, ARefusalIsToldInOneLineWithoutTheLectureAndTheNotesOfTheDialog) {
  account->setOptions("verifypw=always, lecture=always");
  const EnvironmentVariable named("SUDO_ASKPASS", askpassLikeTheBundles(kPassword));
  const auto isTold =
      ::testing::MatchesRegex("No administrator rights: [^;\n]*" + account->name() + "[^;\n]*");
  asAccount([&] {
    EXPECT_EQ(ask(reference()), errAuthorizationDenied);
    EXPECT_EQ(give(reference(), kPassword), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::ElementsAre(isTold, isTold));
  });
}

TEST_F(SudoAuthorizationTest, ALectureIsNoReasonWhateverItsWords) {
  account->allow(kEverything);
  account->setOptions("lecture=always, lecture_file=" + folder.file("lecture", "Mind our rules.\n"));
  const EnvironmentVariable named("SUDO_ASKPASS", script("ask", "echo 'askpass: asks' >&2; exit 1"));
  asAccount([&] {
    EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    EXPECT_EQ(give(reference(), "wrong"), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::IsEmpty());
  });
  account->setOptions("lecture=always");
  const EnvironmentVariable another("SUDO_ASKPASS", script("ask", "exit 1"));
  asAccount([&] {
    EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    EXPECT_THAT(told(), ::testing::IsEmpty()) << "sudo's own, and a dialog that leaves no notes";
  });
}

TEST_F(SudoAuthorizationTest, WhatSudoSaysOfAWrongPasswordIsNoReason) {
  account->allow(kEverything);
  account->setOptions("insults, passwd_tries=2");
  const EnvironmentVariable named("SUDO_ASKPASS", askpassLikeTheBundles("wrong"));
  asAccount([&] {
    EXPECT_EQ(ask(reference()), errAuthorizationDenied);
    EXPECT_EQ(give(reference(), "wrong"), errAuthorizationDenied);
    EXPECT_EQ(give(reference(), ""), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::IsEmpty());
  });
}

TEST_F(SudoAuthorizationTest, WhyADialogCannotBeShownIsTold) {
  account->allow(kEverything);
  account->setOptions("lecture=always");
  const std::string broken = folder.file("broken", "#!/no/such/shell\n");
  ASSERT_EQ(chmod(broken.c_str(), 0755), 0);
  const std::string unlinked = script("unlinked", "echo 'ask: a library is missing' >&2; exit 127");
  asAccount([&] {
    {
      const EnvironmentVariable named("SUDO_ASKPASS", broken);
      EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    }
    const EnvironmentVariable named("SUDO_ASKPASS", unlinked);
    EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    EXPECT_THAT(told(), ::testing::ElementsAre("No administrator rights: sudo: unable to run " + broken +
                                                   ": No such file or directory",
                                               "No administrator rights: ask: a library is missing"));
  });
}

TEST_F(SudoAuthorizationTest, AnAccountThatHasEndedIsToldAfterTheRightPassword) {
  account->allow(kEverything);
  account->expire();
  const EnvironmentVariable named("SUDO_ASKPASS", askpassLikeTheBundles(kPassword));
  const auto isTold = ::testing::StartsWith("No administrator rights: sudo: account validation failure");
  asAccount([&] {
    EXPECT_EQ(ask(reference()), errAuthorizationDenied);
    EXPECT_EQ(give(reference(), kPassword), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::ElementsAre(isTold, isTold));
  });
}

TEST_F(SudoAuthorizationTest, RightsThatSudoDoesNotKeepAreTold) {
  account->allow(kEverything);
  account->setOptions("timestamp_timeout=0");
  const EnvironmentVariable named("SUDO_ASKPASS", askpassLikeTheBundles(kPassword));
  asAccount([&] {
    const auto held = reference();
    EXPECT_EQ(ask(held), errAuthorizationSuccess);
    EXPECT_THAT(told(), ::testing::IsEmpty());
    EXPECT_EQ(run(held, "/bin/true", {}), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::ElementsAre("No administrator rights: sudo: a password is required"));
  });
}

TEST_F(SudoAuthorizationTest, RightsThatHaveRunOutAreToldWhereNobodyIsAskedAgain) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", askpassLikeTheBundles(kPassword));
  const std::string words = "No administrator rights: sudo: a password is required";
  asAccount([&] {
    const auto given = reference();
    const auto found = reference();
    EXPECT_EQ(give(given, kPassword), errAuthorizationSuccess);
    EXPECT_EQ(ask(found), errAuthorizationSuccess);
    EXPECT_EQ(runProgram({"/usr/bin/sudo", "-K"}).status, 0);
    EXPECT_EQ(run(found, "/bin/true", {}), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::ElementsAre(words));
    EXPECT_EQ(run(given, "/bin/true", {}), errAuthorizationDenied);
    EXPECT_THAT(told(), ::testing::ElementsAre(words, words));
  });
}

TEST_F(SudoAuthorizationTest, WhatIsLookedForBeforeADialogIsNotTold) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", askpassLikeTheBundles(kPassword));
  asAccount([&] {
    EXPECT_EQ(probe(reference()), errAuthorizationInteractionNotAllowed);
    EXPECT_EQ(ask(reference()), errAuthorizationSuccess);
    EXPECT_THAT(told(), ::testing::IsEmpty());
  });
}

TEST_F(SudoAuthorizationTest, NothingIsAskedWithoutAnAskpassProgramOrTheFlag) {
  account->allow(kEverything);
  {
    const EnvironmentVariable none("SUDO_ASKPASS", std::nullopt);
    asAccount([this] {
      EXPECT_EQ(ask(reference()), errAuthorizationInteractionNotAllowed);
      EXPECT_THAT(
          fake.systemConsole.messages(),
          ::testing::ElementsAre("No administrator rights: no program is there that asks for the password"));
    });
  }
  const EnvironmentVariable named("SUDO_ASKPASS", script("ask", "cat " + (folder / "password")));
  folder.file("password", std::string(kPassword) + "\n");
  asAccount([this] { EXPECT_EQ(probe(reference()), errAuthorizationInteractionNotAllowed); });
}

TEST_F(SudoAuthorizationTest, NothingIsAskedOfAnAccountThatNeedsNoPassword) {
  account->allow("ALL=(ALL:ALL) NOPASSWD: ALL");
  const EnvironmentVariable named("SUDO_ASKPASS", std::nullopt);
  asAccount([this] {
    const auto held = reference();
    EXPECT_EQ(ask(held), errAuthorizationSuccess);
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n");
  });
}

TEST_F(SudoAuthorizationTest, ThePasswordIsInNoArgumentAndNoEnvironment) {
  const std::string recorder =
      script("sudo", "{ tr '\\0' '\\n' < /proc/$$/cmdline; tr '\\0' '\\n' < /proc/$$/environ; } >> " +
                         (folder / "seen") + "; cat >> " + (folder / "input"));
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  asAccount([&] {
    SudoAuthorization recorded(recorder);
    AuthorizationRef made = nullptr;
    EXPECT_EQ(recorded.create(std::nullopt, 0, &made), errAuthorizationSuccess);
    EXPECT_EQ(recorded.copyRights(made, administrator(),
                                  AuthorizationEnvironment{account->name(), "very secret"}, kNotAsking),
              errAuthorizationSuccess);
  });
  EXPECT_EQ(folder.content("input"), "very secret\n");
  EXPECT_THAT(folder.content("seen"), ::testing::HasSubstr("-S"));
  EXPECT_THAT(folder.content("seen"), ::testing::Not(::testing::HasSubstr("secret")));
}

/// With an askpass program that stands until somebody takes it down.
class SudoDialogTest : public SudoAuthorizationTest {
 protected:
  /// `stubbornly` is what it does about being asked to end.
  std::string dialog(const std::string& stubbornly = "") const {
    EXPECT_EQ(chmod(folder.path().c_str(), 0777), 0);
    return script("ask", stubbornly + "\necho $$ >" + (folder / "asking") + "; exec sleep 60");
  }
  /// Asks until somebody else has stopped it.
  void askAndStop() {
    std::thread stopping([this] {
      EXPECT_TRUE(hasContentSoon(folder / "asking"));
      sudo.stopAsking();
    });
    EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    stopping.join();
    EXPECT_TRUE(isGoneSoon());
    EXPECT_TRUE(hasNoChildrenSoon());
  }

 private:
  [[nodiscard]] bool isGoneSoon() const {
    for (int tries = 0; tries < 500 && !isGone(); ++tries) ::usleep(10'000);
    return isGone();
  }
  /// Whoever inherits it may not have collected it yet.
  [[nodiscard]] bool isGone() const {
    const std::string number = folder.content("asking");
    std::string line;
    std::getline(std::ifstream("/proc/" + number.substr(0, number.find('\n')) + "/stat"), line);
    return line.empty() || line.find(") Z ") != std::string::npos;
  }
};

TEST_F(SudoDialogTest, ADialogThatStandsIsTakenDownWhenNobodyIsToBeAskedAnyMore) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", dialog());
  asAccount([this] { askAndStop(); });
}

TEST_F(SudoDialogTest, ADialogThatAnotherThreadWaitsForIsTakenDownToo) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", dialog());
  asAccount([this] {
    fake.mainThread.current = false;
    fake.mainThread.whenServing = [] { FAIL() << "this is not the main thread"; };
    askAndStop();
  });
}

TEST_F(SudoDialogTest, ADialogThatWillNotGoIsTakenDownToo) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", dialog("trap '' TERM"));
  asAccount([this] { askAndStop(); });
}

TEST_F(SudoDialogTest, ADialogThatIsAboutToComeUpIsTakenDownToo) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", dialog());
  asAccount([&] {
    fake.mainThread.whenServing = [this] { sudo.stopAsking(); };
    EXPECT_EQ(ask(reference()), errAuthorizationCanceled);
    EXPECT_TRUE(hasNoChildrenSoon());
  });
}

TEST_F(SudoDialogTest, NobodyIsAskedAfterwardsAndWhatIsHeldStays) {
  account->allow(kEverything);
  const EnvironmentVariable named("SUDO_ASKPASS", dialog());
  asAccount([&] {
    const auto held = reference();
    EXPECT_EQ(give(held, kPassword), errAuthorizationSuccess);
    sudo.stopAsking();
    EXPECT_EQ(outputOf(held, "/usr/bin/id", {"-u"}), "0\n");
    EXPECT_EQ(runProgram({"/usr/bin/sudo", "-K"}).status, 0);
    EXPECT_EQ(ask(held), errAuthorizationCanceled);
    EXPECT_FALSE(std::filesystem::exists(folder / "asking"));
  });
}

/// With a program in sudo's place, which needs no account.
class SudoInPlaceTest : public ::testing::Test {
 protected:
  SudoAuthorization& service(const std::string& script) {
    const std::string program = folder.file("sudo", "#!/bin/sh\n" + script + "\n");
    EXPECT_EQ(chmod(program.c_str(), 0755), 0);
    sudo.emplace(program);
    EXPECT_EQ(sudo->create(std::nullopt, kAuthorizationFlagDefaults, &held), errAuthorizationSuccess);
    return *sudo;
  }
  /// Waits until work is served on the main thread, though not for ever.
  [[nodiscard]] std::string waitingForService(const std::string& then) const {
    return "for i in $(seq 500); do test -e '" + (folder / "served") + "' && " + then + "; sleep 0.01; done";
  }

  fakes::FakePlatform fake;
  TemporaryFolder folder;
  std::optional<SudoAuthorization> sudo;
  AuthorizationRef held = nullptr;
};

TEST_F(SudoInPlaceTest, WorkOfTheMainThreadIsServedWhileSudoAsks) {
  auto& asking = service(waitingForService("exit 0") + "; exit 1");
  fake.mainThread.whenServing = [this] { folder.file("served"); };
  EXPECT_EQ(asking.copyRights(held, administrator(), std::nullopt, kAsking), errAuthorizationSuccess);
}

TEST_F(SudoInPlaceTest, OtherThreadsServeNoWorkOfTheMainThread) {
  auto& asking = service("exit 0");
  fake.mainThread.current = false;
  fake.mainThread.whenServing = [] { FAIL() << "this is not the main thread"; };
  EXPECT_EQ(asking.copyRights(held, administrator(), std::nullopt, kAsking), errAuthorizationSuccess);
}

TEST_F(SudoInPlaceTest, WorkOfTheMainThreadIsServedWhileAProgramsOutputIsAwaited) {
  auto& starting = service("case \"$*\" in *-b*) (" + waitingForService("echo done && exit") + ") & ;; esac");
  std::unique_ptr<CommunicationsPipe> pipe;
  ASSERT_EQ(starting.executeWithPrivileges(held, "/bin/true", 0, {}, &pipe), errAuthorizationSuccess);
  fake.mainThread.whenServing = [this] { folder.file("served"); };
  EXPECT_EQ(readAll(*pipe), "done\n");
}

TEST_F(SudoInPlaceTest, AnAnswerIsHeardAlsoWhereAParentHadExitStatusesThrownAway) {
  auto& asking = service("exit 0");
  static_cast<void>(std::signal(SIGCHLD, SIG_IGN));
  EXPECT_EQ(asking.copyRights(held, administrator(), std::nullopt, kAsking), errAuthorizationSuccess);
  static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
}

TEST_F(SudoInPlaceTest, APipeCanBeGivenBackWhereNoThreadIsLeftToReadIt) {
  auto& starting = service("exit 0");
  std::unique_ptr<CommunicationsPipe> pipe;
  ASSERT_EQ(starting.executeWithPrivileges(held, "/bin/true", 0, {}, &pipe), errAuthorizationSuccess);
  const support::NoMoreThreads limit;
  pipe.reset();
}

TEST_F(SudoInPlaceTest, WhatIsToldOfARefusalIsOneLine) {
  auto& asking = service("printf '  one \\n\\n two\\033[2J\\\\three\\r\\n' >&2; exit 2");
  EXPECT_EQ(asking.copyRights(held, administrator(), std::nullopt, kAsking), errAuthorizationInternal);
  EXPECT_THAT(fake.systemConsole.messages(),
              ::testing::ElementsAre("No administrator rights: one; two\\033[2J\\\\three"));
}

TEST_F(SudoInPlaceTest, ThatTheComputersOwnNameHasNoAddressIsNoReason) {
  auto& starting = service(
      "echo 'sudo: unable to resolve host studio: Name or service not known' >&2;"
      "case \"$*\" in *-l*) exit 1 ;; esac");
  EXPECT_EQ(starting.executeWithPrivileges(held, "/bin/true", 0, {}, nullptr), errAuthorizationDenied);
  EXPECT_THAT(fake.systemConsole.messages(),
              ::testing::ElementsAre("No administrator rights: /bin/true is not allowed to be started"));
}

TEST_F(SudoInPlaceTest, AStartThatIsRefusedAfterAllIsTold) {
  auto& starting = service("case \"$*\" in *-b*) exit 1 ;; esac");
  EXPECT_EQ(starting.executeWithPrivileges(held, "/bin/true", 0, {}, nullptr), errAuthorizationDenied);
  EXPECT_THAT(
      fake.systemConsole.messages(),
      ::testing::ElementsAre("No administrator rights: " + (folder / "sudo") + " has not started /bin/true"));
}

TEST_F(SudoInPlaceTest, ASudoThatIsGoneAtTheStartIsTold) {
  auto& starting = service("case \"$*\" in *-l*) rm \"$0\" ;; esac");
  EXPECT_EQ(starting.executeWithPrivileges(held, "/bin/true", 0, {}, nullptr), errAuthorizationInternal);
  EXPECT_THAT(fake.systemConsole.messages(),
              ::testing::ElementsAre("No administrator rights: " + (folder / "sudo") + " cannot be started"));
}

TEST(SudoAuthorization, MissingSudoIsAnInternalError) {
  fakes::FakePlatform fake;
  SudoAuthorization sudo("/no/such/sudo");
  AuthorizationRef made = nullptr;
  ASSERT_EQ(sudo.create(std::nullopt, kAuthorizationFlagDefaults, &made), errAuthorizationSuccess);
  EXPECT_EQ(sudo.copyRights(made, administrator(), std::nullopt, kAsking), errAuthorizationInternal);
  EXPECT_EQ(sudo.copyRights(made, administrator(), AuthorizationEnvironment{"alice", "x"}, kNotAsking),
            errAuthorizationInternal);
  EXPECT_EQ(sudo.executeWithPrivileges(made, "/bin/true", 0, {}, nullptr), errAuthorizationInternal);
  const std::string words = "No administrator rights: /no/such/sudo cannot be started";
  EXPECT_THAT(fake.systemConsole.messages(), ::testing::ElementsAre(words, words, words));
}

TEST(SudoAuthorization, NothingIsInheritedFromAParentAndUnknownReferencesAreRefused) {
  SudoAuthorization sudo("/no/such/sudo");
  int anything = 0;
  AuthorizationRef reference = reinterpret_cast<AuthorizationRef>(&anything);
  EXPECT_EQ(sudo.copyRights(reference, administrator(), std::nullopt, kAsking), errAuthorizationInvalidRef);
  EXPECT_EQ(sudo.executeWithPrivileges(nullptr, "/bin/true", 0, {}, nullptr), errAuthorizationInvalidRef);
  EXPECT_EQ(sudo.copyPrivilegedReference(0, &reference), errAuthorizationInvalidRef);
  EXPECT_EQ(reference, nullptr);
}

}  // namespace
}  // namespace platform
