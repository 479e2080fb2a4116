#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/fakes/FakePlatform.h"
#include "platform/macos/MacApplications.h"
#include "tests/platform/gnustep/AppleScriptModule.h"
#include "tests/platform/gnustep/LiveObjects.h"
#include "tests/platform/gnustep/SystemHere.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using foundation::PropertyList;
using support::TemporaryFolder;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

class GnustepApplicationsTest : public ::testing::Test {
 protected:
  TemporaryFolder folder;
  ::fakes::FakePlatform fake;
  MacApplications applications;
};

TEST_F(GnustepApplicationsTest, WithoutAppleScriptAskingIsAnError) {
  const auto error = applications.askToQuit("Compressor");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->stringFor("NSAppleScriptErrorMessage"), "This system has no AppleScript.");
}

TEST_F(GnustepApplicationsTest, AnUnknownIdentifierHasNoPath) {
  EXPECT_EQ(applications.pathForIdentifier("com.apple.Compressor"), std::nullopt);
  EXPECT_EQ(applications.pathForIdentifier(""), std::nullopt);
  EXPECT_EQ(applications.pathForIdentifier("\xFF"), std::nullopt);
}

TEST_F(GnustepApplicationsTest, RegistrationUpdatesWhatLaunchServicesKnow) {
  EXPECT_EQ(applications.registerApplication("/Applications/A b.app"), noErr);
  EXPECT_EQ(applications.registerApplication("/absent.app"), fnfErr);
  EXPECT_EQ(applications.registerApplication(""), paramErr);
  EXPECT_THAT(gnustep::takeRegisteredPaths(),
              ElementsAre("/Applications/A b.app update", "/absent.app update"));
}

TEST_F(GnustepApplicationsTest, RootSeesTheApplicationsOfAllUsersByTheirPrograms) {
  const std::string program = folder.folder("Some.app/Contents/MacOS") + "/Some";
  std::filesystem::copy_file("/bin/sleep", program);
  folder.file("Some.app/Resources/Info-gnustep.plist", "{ CFBundleIdentifier = \"com.example.Some\"; }");
  const ChildProcess running({program, "60"});
  // The new program takes the place of this one's copy a moment after the start.
  fake.users.user = 0;
  std::vector<std::string> identifiers;
  for (int look = 0; look < 500 && identifiers.empty(); ++look) {
    identifiers = applications.launchedIdentifiers();
    ::usleep(10000);
  }
  EXPECT_THAT(identifiers, Contains("com.example.Some"));
  fake.users.user = 501;
  EXPECT_THAT(applications.launchedIdentifiers(), Not(Contains("com.example.Some")));
}

TEST_F(GnustepApplicationsTest, RootAsksInTheConsoleUsersSession) {
  fake.users.user = 0;
  fake.users.console = "nobody";
  EXPECT_EQ(applications.askToQuit("Compressor"), std::nullopt);
  ASSERT_EQ(fake.subprocesses.created.size(), 1U);
  EXPECT_THAT(fake.subprocesses.created[0].arguments,
              ::testing::IsSupersetOf({"asuser", "65534", "/usr/bin/osascript", "-e"}));
  fake.users.console = std::nullopt;
  const auto error = applications.askToQuit("Compressor");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->find("NSAppleScriptErrorNumber")->integerValue(), -600);
}

/// With an AppleScript, which a module plays.
class AppleScriptTest : public GnustepApplicationsTest {
 protected:
  template <typename Function>
  Function* ofModule(const char* name) {
    void* const module = ::dlopen(APPLE_SCRIPT_MODULE, RTLD_NOW);
    return reinterpret_cast<Function*>(::dlsym(module, name));
  }
  AppleScriptTest() { static_cast<void>(ran()); }
  std::string ran() { return ofModule<decltype(scriptTakeRun)>("scriptTakeRun")(); }
};

TEST_F(AppleScriptTest, TheApplicationIsAskedWithoutWaitingForItsAnswer) {
  EXPECT_EQ(applications.askToQuit("Compressor"), std::nullopt);
  EXPECT_EQ(ran(), "ignoring application responses\ntell application \"Compressor\" to quit\nend ignoring");
}

TEST_F(AppleScriptTest, ANameCannotEndItsQuotationMarks) {
  EXPECT_EQ(applications.askToQuit("a\" to b\\"), std::nullopt);
  EXPECT_THAT(ran(), ::testing::HasSubstr("tell application \"a\\\" to b\\\\\" to quit"));
}

TEST_F(AppleScriptTest, AskingIsTheMainThreads) {
  fake.mainThread.recordsWork = true;
  EXPECT_EQ(applications.askToQuit("Compressor"), std::nullopt);
  EXPECT_THAT(fake.recorder.lines(), ElementsAre(::testing::StartsWith("main")));
}

TEST_F(AppleScriptTest, NothingIsLeftBehind) {
  EXPECT_EQ(gnustep::leftBehindBy([this] { static_cast<void>(applications.askToQuit("Compressor")); }), "");
}

TEST_F(AppleScriptTest, AFailureIsItsErrorDictionaryAsFarAsItIsAPropertyList) {
  ofModule<decltype(scriptFail)>("scriptFail")();
  const auto error = applications.askToQuit("Compressor");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->stringFor("NSAppleScriptErrorMessage"), "Application isn’t running.");
  EXPECT_EQ(error->find("NSAppleScriptErrorNumber")->integerValue(), -600);
  EXPECT_EQ(error->find("NSAppleScriptErrorRange"), nullptr);
}

}  // namespace
}  // namespace platform
