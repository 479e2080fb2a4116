#include "platform/linux/LinuxSubprocesses.h"

#include <unistd.h>

#include "tests/platform/SubprocessRuns.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Not;
using ::testing::StartsWith;

class FixedBundle : public MainBundle {
 public:
  std::string path() override { return folder; }
  std::string executablePath() override { return folder + "/Contents/MacOS/Quillmend"; }
  foundation::PropertyList infoDictionary() override { return {}; }
  std::optional<std::string> pathForIdentifier(const std::string&) override { return {}; }
  std::optional<std::string> pathForResource(const std::string&, const std::string&) override { return {}; }
  std::string localizedString(const std::string& key) override { return key; }

  std::string folder;
};

class LinuxSubprocessesTest : public SubprocessRuns {
 protected:
  Subprocesses& maker() override { return subprocesses; }

  FixedBundle bundle;
  LinuxSubprocesses subprocesses{mainThread, bundle};
};

TEST_F(LinuxSubprocessesTest, AChildOutlivesTheProgramThatLaunchedIt) {
  const support::TemporaryFolder folder;
  run(kProbe, {"leave-child", folder / "sign"});
  EXPECT_FALSE(std::filesystem::exists(folder / "sign"));
  folder.file("sign.go");
  EXPECT_TRUE(eventually([&] { return folder.content("sign") == "outlived\n"; }));
}

TEST_F(LinuxSubprocessesTest, WorksWithItsOwnStandardStreamsClosed) {
  for (const std::string closed : {"0", "1", "2", "01", "012"}) {
    const support::TemporaryFolder folder;
    run(kProbe, {"capture-closed", closed, folder / "result"});
    EXPECT_EQ(folder.content("result"), "output\nerror\n0") << closed;
  }
}

TEST_F(LinuxSubprocessesTest, AToolThatTheSystemLacksIsTheBundlesEquivalent) {
  if (std::filesystem::exists("/usr/sbin/scutil")) GTEST_SKIP() << "this system has a scutil of its own";
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  EXPECT_FALSE(subprocesses.isExecutableFile("/usr/sbin/scutil"));
  const std::string equivalent =
      folder.file("Contents/SharedSupport/scutil", "#!/bin/sh\necho \"equivalent $*\"\n");
  std::filesystem::permissions(equivalent, std::filesystem::perms::all);
  EXPECT_TRUE(subprocesses.isExecutableFile("/usr/sbin/scutil"));
  EXPECT_EQ(run("/usr/sbin/scutil", {"--get", "ComputerName"}), "equivalent --get ComputerName\n");
  EXPECT_FALSE(subprocesses.isExecutableFile("/elsewhere/scutil"));
}

TEST_F(LinuxSubprocessesTest, AnArchiverThatTheSystemLacksIsTheBundlesToo) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  LinuxSubprocesses rooted(mainThread, bundle, folder / "root");
  EXPECT_FALSE(rooted.isExecutableFile("/usr/bin/ditto"));
  for (const std::string tool : {"Contents/SharedSupport/ditto", "root/usr/bin/ditto"}) {
    const std::string path = folder.file(tool, "#!/bin/sh\necho \"$0\"\n");
    std::filesystem::permissions(path, std::filesystem::perms::all);
    const auto child = rooted.create({.launchPath = "/usr/bin/ditto", .standardOutput = Stream::pipe});
    child->launch();
    child->waitUntilExit();
    EXPECT_EQ(child->availableOutput(), path + "\n");
  }
}

TEST_F(LinuxSubprocessesTest, AnOpenerThatIsALinkToAnotherProgramIsPassedOver) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  const auto makeTool = [&folder](const std::string& name, const std::string& says) {
    const std::string tool = folder.file(name, "#!/bin/sh\necho \"" + says + " $*\"\n");
    std::filesystem::permissions(tool, std::filesystem::perms::all);
    return tool;
  };
  makeTool("Contents/SharedSupport/open", "equivalent");
  const std::string another = makeTool("root/usr/bin/another-open", "another");
  const std::string link = folder / "root/usr/bin/open";
  std::filesystem::create_symlink(another, link);
  LinuxSubprocesses rooted(mainThread, bundle, folder / "root");
  const auto opening = [&rooted] {
    const auto child = rooted.create(
        {.launchPath = "/usr/bin/open", .arguments = {"-a", "Menu"}, .standardOutput = Stream::pipe});
    child->launch();
    child->waitUntilExit();
    return child->availableOutput();
  };
  EXPECT_EQ(opening(), "equivalent -a Menu\n");
  std::filesystem::remove(link);
  makeTool("root/usr/bin/open", "own");
  EXPECT_EQ(opening(), "own -a Menu\n");
}

TEST_F(LinuxSubprocessesTest, TheOwnerChangerIsAlwaysTheBundles) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  const auto makeTool = [&folder](const std::string& name, const std::string& says) {
    std::filesystem::permissions(folder.file(name, "#!/bin/sh\necho \"" + says + " $*\"\n"),
                                 std::filesystem::perms::all);
  };
  makeTool("root/usr/sbin/chown", "general");
  LinuxSubprocesses rooted(mainThread, bundle, folder / "root");
  EXPECT_FALSE(rooted.isExecutableFile("/usr/sbin/chown")) << "the general one follows planted links";
  makeTool("Contents/SharedSupport/chown", "guarded");
  EXPECT_TRUE(rooted.isExecutableFile("/usr/sbin/chown"));
  const auto child = rooted.create(
      {.launchPath = "/usr/sbin/chown", .arguments = {"alice", "file"}, .standardOutput = Stream::pipe});
  child->launch();
  child->waitUntilExit();
  EXPECT_EQ(child->availableOutput(), "guarded alice file\n");
}

TEST_F(LinuxSubprocessesTest, RootsFileToolsAreTheBundlesAndOthersTheSystems) {
  const support::TemporaryFolder folder;
  bundle.folder = folder.path();
  for (const char* verb : {"cp", "mv", "rm", "mkdir"}) {
    SCOPED_TRACE(verb);
    const std::string path = std::string("/bin/") + verb;
    EXPECT_EQ(subprocesses.isExecutableFile(path), ::geteuid() != 0)
        << "the general one follows what is exchanged";
    const std::string own =
        folder.file(std::string("Contents/SharedSupport/") + verb, "#!/bin/sh\necho \"own $*\"\n");
    std::filesystem::permissions(own, std::filesystem::perms::all);
    const auto child =
        subprocesses.create({.launchPath = path, .arguments = {"--version"}, .standardOutput = Stream::pipe});
    child->launch();
    child->waitUntilExit();
    EXPECT_EQ(child->launchPath(), path);
    EXPECT_EQ(child->availableOutput().starts_with("own --version\n"), ::geteuid() == 0);
  }
}

TEST_F(LinuxSubprocessesTest, RootsChildrenGetARootsEnvironment) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const support::EnvironmentVariable library("LD_LIBRARY_PATH", "/nowhere");
  const support::EnvironmentVariable display("DISPLAY", ":7");
  const auto lines = linesOf(run(kProbe, {"environment"}));
  EXPECT_THAT(lines, AllOf(Contains("PATH=/usr/bin:/bin:/usr/sbin:/sbin"),
                           Not(Contains(StartsWith("LD_LIBRARY_PATH"))), Not(Contains("DISPLAY=:7"))));
}

TEST_F(LinuxSubprocessesTest, TheToolsThatOpenOnTheDesktopAreToldTheDisplay) {
  const support::TemporaryFolder folder;
  const support::EnvironmentVariable display("DISPLAY", ":7");
  for (const char* const name : {"open", "asuser"}) {
    std::filesystem::copy_file(kProbe, folder / name);
    EXPECT_THAT(linesOf(run(folder / name, {"environment"})), Contains("DISPLAY=:7")) << name;
  }
}

}  // namespace
}  // namespace platform
