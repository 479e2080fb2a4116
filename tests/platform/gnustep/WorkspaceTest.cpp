#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/macos/MacWorkspace.h"
#include "tests/platform/gnustep/LiveObjects.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using support::TemporaryFolder;
using ::testing::ElementsAre;

/// The workspace of an account that is not root's. GNUstep's hands what it has no application for to
/// xdg-open, for which the tests' folder of tools has a script that writes down what it gets.
class GnustepWorkspaceTest : public ::testing::Test {
 protected:
  GnustepWorkspaceTest() {
    const std::string tools = home + "/tools";
    std::filesystem::create_directories(tools);
    std::ofstream(tools + "/xdg-open")
        << "#!/bin/sh\necho \"$@\" >" << record << ".new && mv " << record << ".new " << record << "\n";
    std::filesystem::permissions(tools + "/xdg-open", std::filesystem::perms::owner_all);
  }

  [[nodiscard]] std::string opened() const {
    constexpr int kLooks = 500;
    for (int look = 0; look < kLooks && !std::filesystem::exists(record); ++look) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return support::contentOf(record);
  }

  const std::string home = std::getenv("HOME");
  TemporaryFolder folder;
  const std::string record = folder / "opened";
  ::fakes::FakePlatform fake;
  MacWorkspace workspace;
};

TEST_F(GnustepWorkspaceTest, AFileIsOpened) {
  const std::string file = folder.file("Grüße.txt");
  EXPECT_TRUE(workspace.openFile(file));
  EXPECT_EQ(opened(), file + "\n");
}

TEST_F(GnustepWorkspaceTest, AnAddressIsOpened) {
  EXPECT_TRUE(workspace.openURL("https://example.invalid/a?b=c"));
  EXPECT_EQ(opened(), "https://example.invalid/a?b=c\n");
}

TEST_F(GnustepWorkspaceTest, WhatIsMissingOrNoAddressIsNotOpened) {
  EXPECT_FALSE(workspace.openFile(folder / "absent"));
  EXPECT_FALSE(workspace.openFile("relative"));
  EXPECT_FALSE(workspace.openFile(folder.file("a.txt"), "NoSuchApplication"));
  EXPECT_FALSE(workspace.openFile(folder.file("a.txt"), ""));
  EXPECT_FALSE(workspace.openURL(""));
  EXPECT_FALSE(workspace.openURL("-a"));
  EXPECT_FALSE(workspace.openURL("\xFF"));
}

TEST_F(GnustepWorkspaceTest, ApplicationsAreFilePackagesAndPlainFoldersAreNot) {
  EXPECT_TRUE(workspace.isFilePackage(folder.folder("x.app")));
  EXPECT_FALSE(workspace.isFilePackage(folder.folder("plain")));
  EXPECT_FALSE(workspace.isFilePackage(folder / "absent.app"));
}

TEST_F(GnustepWorkspaceTest, AFailureToRecycleIsAnErrorThatNamesTheItem) {
  const std::string file = folder.file("in/a.txt", "1");
  const auto recycled = workspace.recycle(folder / "in", folder.folder("trash"), {"a.txt"});
  ASSERT_FALSE(recycled) << "GNUstep's workspace has no trash of its own";
  EXPECT_EQ(recycled.error().path, file);
  for (const char* const name : {"", ".", "..", "a/b"}) {
    const auto refused = workspace.recycle(folder / "in", folder / "trash", {name});
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, EINVAL) << name;
  }
  EXPECT_TRUE(workspace.recycle(folder / "in", folder / "trash", {}));
}

TEST_F(GnustepWorkspaceTest, NothingIsLeftBehind) {
  const std::string package = folder.folder("x.app");
  EXPECT_EQ(gnustep::leftBehindBy([&] { static_cast<void>(workspace.isFilePackage(package)); }), "");
}

/// Root starts things in the session of whoever sits at the console.
class RootsWorkspaceTest : public ::testing::Test {
 protected:
  RootsWorkspaceTest() {
    fake.users.user = 0;
    fake.users.console = "nobody";
  }
  static std::vector<std::string> inSessionOfNobody(std::vector<std::string> command) {
    std::vector<std::string> all = {"asuser", "65534", "/usr/bin/sudo", "-n", "-H", "-u", "#65534", "--"};
    all.insert(all.end(), command.begin(), command.end());
    return all;
  }

  TemporaryFolder folder;
  ::fakes::FakePlatform fake;
  MacWorkspace workspace;
};

TEST_F(RootsWorkspaceTest, ThingsAreOpenedInTheConsoleUsersSession) {
  const std::string file = folder.file("a.txt");
  EXPECT_TRUE(workspace.openFile(file));
  EXPECT_TRUE(workspace.openFile(file, "Console"));
  EXPECT_TRUE(workspace.openURL("https://example.invalid/"));
  ASSERT_EQ(fake.subprocesses.created.size(), 3U);
  for (const auto& options : fake.subprocesses.created) {
    EXPECT_EQ(options.launchPath, "/bin/launchctl");
    EXPECT_EQ(options.standardOutput, Stream::nullDevice);
  }
  EXPECT_EQ(fake.subprocesses.created[0].arguments, inSessionOfNobody({"/usr/bin/open", file}));
  EXPECT_EQ(fake.subprocesses.created[1].arguments,
            inSessionOfNobody({"/usr/bin/open", "-a", "Console", file}));
  EXPECT_EQ(fake.subprocesses.created[2].arguments,
            inSessionOfNobody({"/usr/bin/open", "https://example.invalid/"}));
}

TEST_F(RootsWorkspaceTest, NothingIsOpenedWithNobodyAtTheConsole) {
  const std::string file = folder.file("a.txt");
  for (const std::optional<std::string>& console :
       {std::optional<std::string>(), std::optional<std::string>("loginwindow"),
        std::optional<std::string>("no such account")}) {
    fake.users.console = console;
    EXPECT_FALSE(workspace.openFile(file));
    EXPECT_FALSE(workspace.openURL("https://example.invalid/"));
  }
  EXPECT_TRUE(fake.subprocesses.created.empty());
}

TEST_F(RootsWorkspaceTest, ItemsMoveIntoTheTrashThatIsGivenByOwnMeans) {
  folder.file("in/a.txt", "new");
  folder.file("trash/a.txt", "old");
  ASSERT_TRUE(workspace.recycle(folder / "in", folder / "trash", {"a.txt"}));
  EXPECT_FALSE(std::filesystem::exists(folder / "in/a.txt"));
  EXPECT_EQ(folder.content("trash/a 2.txt"), "new");
  EXPECT_EQ(folder.content("trash/a.txt"), "old");
}

TEST_F(RootsWorkspaceTest, ItemsAreNotRecycledThroughAnothersLink) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can make another user's link";
  folder.file("in/a.txt");
  std::filesystem::create_directory_symlink("in", folder / "link");
  ASSERT_EQ(::lchown((folder / "link").c_str(), 65534, 65534), 0);
  const auto recycled = workspace.recycle(folder / "link", folder.folder("trash"), {"a.txt"});
  ASSERT_FALSE(recycled);
  EXPECT_EQ(recycled.error().code, ELOOP);
  EXPECT_TRUE(std::filesystem::exists(folder / "in/a.txt"));
}

}  // namespace
}  // namespace platform
