#include "platform/linux/LinuxApplications.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/fakes/FakePlatform.h"
#include "platform/linux/ApplicationBundles.h"
#include "tests/support/AsUser.h"
#include "tests/support/RunningProgram.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;
using support::AsUser;
using support::kNobody;
using support::RunningProgram;
using support::TemporaryFolder;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

constexpr const char* kCompressor4 = "com.apple.Compressor";
constexpr const char* kCompressor3 = "com.apple.compressor.Compressor";

class LinuxApplicationsTest : public ::testing::Test {
 protected:
  std::string bundle(const std::string& relative, const PropertyList::Dictionary& information) const {
    const auto xml = xmlOf(information);
    computer.file(relative + "/Contents/Info.plist", xml);
    return computer / relative;
  }
  std::string bundle(const std::string& relative, const std::string& identifier) const {
    return bundle(relative, PropertyList::Dictionary{{"CFBundleIdentifier", identifier}});
  }
  /// Puts the waiting program into a bundle and answers its path.
  std::string program(const std::string& bundlePath, const std::string& name = "Compressor") const {
    fs::create_directories(bundlePath + "/Contents/MacOS");
    fs::copy_file(WAITING_PROGRAM, bundlePath + "/Contents/MacOS/" + name);
    return bundlePath + "/Contents/MacOS/" + name;
  }
  static std::string xmlOf(const PropertyList& value) {
    return LinuxPropertyLists().serialize(value, PropertyListFormat::xml).value();
  }
  void registerApplications(const std::string& file, const PropertyList::Array& paths) const {
    computer.file(file, xmlOf(PropertyList::Dictionary{{"Applications", paths}}));
  }

  fakes::FakePlatform fake;
  TemporaryFolder computer;
  LinuxApplications applications{computer.path()};
};

TEST_F(LinuxApplicationsTest, BundleIsFoundByTheIdentifierInItsInfoPlist) {
  const auto path = bundle("Applications/Compressor.app", kCompressor4);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), path);
}

TEST_F(LinuxApplicationsTest, CaseOfAnIdentifierMatters) {
  const auto three = bundle("Applications/A.app", kCompressor3);
  EXPECT_EQ(applications.pathForIdentifier("com.apple.compressor.compressor"), std::nullopt);
  EXPECT_EQ(applications.pathForIdentifier("COM.APPLE.COMPRESSOR.COMPRESSOR"), std::nullopt);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor3), three);
}

TEST_F(LinuxApplicationsTest, BundleOneFolderBelowIsFoundAndOneTwoBelowIsNot) {
  const auto path = bundle("Applications/Final Cut Studio 3.0/Compressor.app", kCompressor3);
  bundle("Applications/a/b/Deep.app", "com.example.deep");
  EXPECT_EQ(applications.pathForIdentifier(kCompressor3), path);
  EXPECT_EQ(applications.pathForIdentifier("com.example.deep"), std::nullopt);
}

TEST_F(LinuxApplicationsTest, ApplicationsInsideAnotherBundleAreNotEntered) {
  bundle("Applications/Outer.app/Inner.app", "com.example.inner");
  bundle("Applications/Thing.bundle/Inner.app", "com.example.inner");
  EXPECT_EQ(applications.pathForIdentifier("com.example.inner"), std::nullopt);
}

TEST_F(LinuxApplicationsTest, LocalApplicationGoesBeforeTheUsersAndBothBeforeARegisteredOne) {
  const auto registered = bundle("Volumes/Media/Compressor.app", kCompressor4);
  registerApplications("Library/Preferences/com.vordenworks.applications.plist",
                       {"/Volumes/Media/Compressor.app"});
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), registered);
  const auto users = bundle("Users/alice/Applications/Compressor.app", kCompressor4);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), users);
  const auto utility = bundle("Applications/Utilities/Compressor.app", kCompressor4);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), utility);
  const auto local = bundle("Applications/Z.app", kCompressor4);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), local);
}

TEST_F(LinuxApplicationsTest, RootTakesNoApplicationFromAUsersFolder) {
  bundle("Users/bob/Applications/Compressor.app", kCompressor4);
  fake.users.user = 0;
  fake.users.console = "bob";
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), std::nullopt);
  const auto local = bundle("Applications/Compressor.app", kCompressor4);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), local);
}

TEST_F(LinuxApplicationsTest, RegistrationByAUserCountsForThatUserOnly) {
  const auto path = bundle("Volumes/Media/Compressor.app", kCompressor4);
  registerApplications("Users/alice/Library/Preferences/com.vordenworks.applications.plist",
                       {"/Volumes/Media/Compressor.app"});
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), path);
  fake.users.user = 0;
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), std::nullopt);
}

TEST_F(LinuxApplicationsTest, RootTakesOnlyARegistryThatNobodyElseCanWrite) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const auto path = bundle("Volumes/Media/Compressor.app", kCompressor4);
  registerApplications("Library/Preferences/com.vordenworks.applications.plist",
                       {"/Volumes/Media/Compressor.app"});
  const std::string registry = computer / "Library/Preferences/com.vordenworks.applications.plist";
  fake.users.user = 0;
  ASSERT_EQ(chmod(registry.c_str(), 0644), 0);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), path);
  ASSERT_EQ(chmod(registry.c_str(), 0664), 0);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), std::nullopt);
  ASSERT_EQ(chmod(registry.c_str(), 0644) + chown(registry.c_str(), kNobody, 0), 0);
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), std::nullopt);
}

TEST_F(LinuxApplicationsTest, RegistryOfAnotherShapeRegistersNothing) {
  const std::string registry = "Library/Preferences/com.vordenworks.applications.plist";
  registerApplications(registry, {3, "relative.app", "/missing.app"});
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), std::nullopt);
  computer.file(registry, xmlOf(PropertyList::Dictionary{{"Applications", "text"}}));
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), std::nullopt);
}

TEST_F(LinuxApplicationsTest, UnusableInfoPlistsAreSkippedWithoutBlocking) {
  bundle("Applications/Array.app", PropertyList::Dictionary{{"CFBundleIdentifier", 7}});
  computer.file("Applications/Broken.app/Contents/Info.plist", "<plist");
  computer.file("Applications/Huge.app/Contents/Info.plist");
  fs::resize_file(computer / "Applications/Huge.app/Contents/Info.plist", kLargestInfoPlist + 1);
  ASSERT_FALSE(computer.folder("Applications/Fifo.app/Contents").empty());
  ASSERT_EQ(mkfifo((computer / "Applications/Fifo.app/Contents/Info.plist").c_str(), 0644), 0);
  ASSERT_FALSE(computer.folder("Applications/Folder.app/Contents/Info.plist").empty());
  const auto good = bundle("Applications/Last.app", kCompressor4);
  ASSERT_FALSE(computer.folder("Applications/Link.app/Contents").empty());
  fs::create_symlink(good + "/Contents/Info.plist", computer / "Applications/Link.app/Contents/Info.plist");
  EXPECT_EQ(applications.pathForIdentifier(kCompressor4), good);
}

TEST_F(LinuxApplicationsTest, EmptyIdentifierFindsNothing) {
  bundle("Applications/A.app", "");
  EXPECT_EQ(applications.pathForIdentifier(""), std::nullopt);
}

TEST_F(LinuxApplicationsTest, ApplicationIsRunningWhileAProgramOfItsBundleRuns) {
  const auto path = bundle("Users/alice/Somewhere/Compressor.app", kCompressor4);
  const auto executable = program(path);
  EXPECT_THAT(applications.launchedIdentifiers(), Not(Contains(kCompressor4)));
  {
    const RunningProgram running(executable);
    const RunningProgram another(executable);
    EXPECT_THAT(applications.launchedIdentifiers(), ElementsAre(kCompressor4));
  }
  EXPECT_THAT(applications.launchedIdentifiers(), Not(Contains(kCompressor4)));
}

TEST_F(LinuxApplicationsTest, ProgramOutsideABundleIsNoApplicationWhateverItsName) {
  fs::copy_file(WAITING_PROGRAM, computer / "Compressor");
  fs::create_directories(computer / "Compressor.app/Contents/Helpers");
  bundle("Compressor.app", kCompressor4);
  fs::copy_file(WAITING_PROGRAM, computer / "Compressor.app/Contents/Helpers/Compressor");
  const RunningProgram plain(computer / "Compressor");
  const RunningProgram helper(computer / "Compressor.app/Contents/Helpers/Compressor");
  EXPECT_THAT(applications.launchedIdentifiers(), Not(Contains(kCompressor4)));
  EXPECT_TRUE(applications.askToQuit("Compressor"));
}

TEST_F(LinuxApplicationsTest, ProgramOfABundleInsideAnotherBelongsToTheInnerOne) {
  const auto outer = bundle("Outer.app", "com.example.outer");
  const auto inner = bundle("Outer.app/Contents/MacOS/Inner.app", "com.example.inner");
  const RunningProgram running(program(inner));
  EXPECT_THAT(applications.launchedIdentifiers(), Contains("com.example.inner"));
  EXPECT_THAT(applications.launchedIdentifiers(), Not(Contains("com.example.outer")));
}

TEST_F(LinuxApplicationsTest, ApplicationWhoseProgramWasReplacedStillRuns) {
  const auto executable = program(bundle("Compressor.app", kCompressor4));
  const RunningProgram running(executable);
  fs::remove(executable);
  EXPECT_THAT(applications.launchedIdentifiers(), Contains(kCompressor4));
}

TEST_F(LinuxApplicationsTest, AskingToQuitEndsEveryProcessOfTheApplicationAndNoOther) {
  const auto executable = program(bundle("Compressor.app", kCompressor4));
  const auto other = program(bundle("Compressor X.app", "com.example.x"));
  RunningProgram one(executable);
  RunningProgram two(executable);
  RunningProgram bystander(other);
  EXPECT_EQ(applications.askToQuit("Compressor"), std::nullopt);
  EXPECT_EQ(one.waitForSignal(), SIGTERM);
  EXPECT_EQ(two.waitForSignal(), SIGTERM);
  EXPECT_FALSE(bystander.hasEnded());
}

TEST_F(LinuxApplicationsTest, ApplicationIsAlsoCalledByTheNameInItsBundle) {
  const auto path = bundle("Renamed.app", PropertyList::Dictionary{{"CFBundleName", "Compressor"}});
  RunningProgram running(program(path));
  EXPECT_EQ(applications.askToQuit("Compressor"), std::nullopt);
  EXPECT_EQ(running.waitForSignal(), SIGTERM);
}

TEST_F(LinuxApplicationsTest, AskingAnApplicationThatDoesNotRunAnswersTheErrorOfAppleScript) {
  const auto error = applications.askToQuit("Compressor");
  ASSERT_TRUE(error);
  EXPECT_EQ(*error, PropertyList(PropertyList::Dictionary{
                        {"NSAppleScriptErrorAppName", "Compressor"},
                        {"NSAppleScriptErrorBriefMessage", "Application isn’t running."},
                        {"NSAppleScriptErrorMessage", "Compressor got an error: Application isn’t running."},
                        {"NSAppleScriptErrorNumber", -600}}));
}

TEST_F(LinuxApplicationsTest, AskingAnApplicationOfAnotherUserWithoutTheRightIsAPrivilegeViolation) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  computer.makeAccessibleToAll();
  const auto executable = program(bundle("Compressor.app", kCompressor4));
  RunningProgram running(executable);
  // A user sees no programs of others: a table that shows this one stands for a system that does.
  const std::string entry = computer.folder("proc/" + std::to_string(running.pid()));
  for (const char* name : {"stat", "status"}) {
    std::ofstream(entry + "/" + name)
        << std::ifstream("/proc/" + std::to_string(running.pid()) + "/" + name).rdbuf();
  }
  fs::create_symlink(executable, entry + "/exe");
  AsUser::run(kNobody, [&] {
    LinuxApplications asNobody(computer.path(), ProcessTable(computer / "proc"));
    const auto error = asNobody.askToQuit("Compressor");
    ASSERT_TRUE(error);
    EXPECT_EQ(*error->find("NSAppleScriptErrorNumber"), PropertyList(-10004));
  });
  EXPECT_FALSE(running.hasEnded());
}

TEST(ApplicationBundles, ProgramOfABundleIsTheNamedOneElseTheBundlesName) {
  const auto executable = [](const PropertyList::Dictionary& information) {
    return ApplicationBundle{"/A/Compressor.app", information}.executable();
  };
  EXPECT_EQ(executable({}), "/A/Compressor.app/Contents/MacOS/Compressor");
  EXPECT_EQ(executable({{"CFBundleExecutable", "main"}}), "/A/Compressor.app/Contents/MacOS/main");
  EXPECT_EQ(executable({{"CFBundleExecutable", "../../../sh"}}),
            "/A/Compressor.app/Contents/MacOS/Compressor");
  EXPECT_EQ(executable({{"CFBundleExecutable", ".."}}), "/A/Compressor.app/Contents/MacOS/Compressor");
}

TEST(ApplicationBundles, OnlyAProgramInContentsMacOSBelongsToABundle) {
  EXPECT_EQ(bundleOfExecutable("/A/B.app/Contents/MacOS/b"), "/A/B.app");
  EXPECT_EQ(bundleOfExecutable("/A/B.app/Contents/MacOS/sub/b"), "/A/B.app");
  EXPECT_EQ(bundleOfExecutable("/A/B.app/Contents/Helpers/b"), std::nullopt);
  EXPECT_EQ(bundleOfExecutable("/A/B/Contents/MacOS/b"), std::nullopt);
  EXPECT_EQ(bundleOfExecutable("/A/.app/Contents/MacOS/b"), std::nullopt);
  EXPECT_EQ(bundleOfExecutable(""), std::nullopt);
}

}  // namespace
}  // namespace platform
