#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "platform/linux/ComputerNames.h"
#include "tests/platform/RunProgram.h"
#include "tests/platform/TemporaryFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Pair;
using tests::runProgram;

const std::string kTools = SHARED_SUPPORT;

uid_t ownerOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_uid;
}

class ComputerNamesTest : public ::testing::Test {
 protected:
  tests::TemporaryFolder folder;
  ComputerNames names{folder.path()};
};

TEST_F(ComputerNamesTest, NothingIsSetWithoutTheFiles) {
  EXPECT_EQ(names.computerName(), std::nullopt);
  EXPECT_EQ(names.localHostName(), std::nullopt);
}

TEST_F(ComputerNamesTest, ThePrettyNameIsForPeopleAndTheFirstLabelForTheNetwork) {
  folder.makeFile("hostname", "# set by hand\n\n render7.example.org \n");
  EXPECT_EQ(names.computerName(), "render7.example.org");
  EXPECT_EQ(names.localHostName(), "render7");
  folder.makeFile("machine-info", "CHASSIS=desktop\nPRETTY_HOSTNAME=\"Alice's \\\"Render\\\" Mac\"\n");
  EXPECT_EQ(names.computerName(), "Alice's \"Render\" Mac");
  EXPECT_EQ(names.localHostName(), "render7");
}

TEST_F(ComputerNamesTest, ANameThatNobodyGaveIsNone) {
  for (const char* const name : {"localhost\n", "(none)\n", "", "\n", "# only a comment\n"}) {
    folder.makeFile("hostname", name);
    EXPECT_EQ(names.computerName(), std::nullopt) << name;
    EXPECT_EQ(names.localHostName(), std::nullopt) << name;
  }
  folder.makeFile("hostname", "localhost.localdomain\n");
  EXPECT_EQ(names.localHostName(), std::nullopt);
}

TEST_F(ComputerNamesTest, APrettyNameAloneIsNoLocalHostName) {
  folder.makeFile("machine-info", "PRETTY_HOSTNAME=Render\n");
  EXPECT_EQ(names.computerName(), "Render");
  EXPECT_EQ(names.localHostName(), std::nullopt);
}

TEST(Scutil, PrintsTheNameOrThatItIsNotSet) {
  const ComputerNames names("/etc");
  const auto name = names.computerName();
  const auto host = names.localHostName();
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "ComputerName"}),
              Pair(name ? 0 : 1, name.value_or("ComputerName: not set") + "\n"));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "LocalHostName"}),
              Pair(host ? 0 : 1, host.value_or("LocalHostName: not set") + "\n"));
}

TEST(Scutil, OtherArgumentsAreAnError) {
  EXPECT_THAT(runProgram({kTools + "/scutil"}), Pair(64, HasSubstr("usage: scutil")));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--set", "ComputerName"}), Pair(64, HasSubstr("usage")));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "HostName"}), Pair(64, HasSubstr("usage")));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "ComputerName", "x"}), Pair(64, HasSubstr("usage")));
}

/// Opens as an ordinary user; root opens for whoever sits at the console.
class OpenTest : public ::testing::Test {
 protected:
  OpenTest() {
    fs::permissions(folder.path(), fs::perms::all);
    for (const char* const tool : {"open", "asuser"}) fs::copy_file(kTools + "/" + tool, folder.path(tool));
  }

  tests::TemporaryFolder folder;

  std::pair<int, std::string> open(const std::vector<std::string>& arguments,
                                   const std::vector<std::string>& environment = {}) {
    std::vector<std::string> command;
    if (::geteuid() == 0) command = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    if (!environment.empty()) command.emplace_back("/usr/bin/env");
    command.insert(command.end(), environment.begin(), environment.end());
    command.push_back(folder.path("open"));
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command);
  }

  /// A program that writes its arguments, one a line, into the file "opened".
  std::string makeProgram(const std::string& name) {
    const std::string path =
        folder.makeFile(name, "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + folder.path("part") + "'\nmv '" +
                                  folder.path("part") + "' '" + folder.path("opened") + "'\n");
    fs::permissions(path, fs::perms::all);
    return path;
  }
  std::string waitForOpened() {
    for (int turns = 0; turns < 5000 && !fs::exists(folder.path("opened")); ++turns) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return folder.read("opened");
  }
};

TEST_F(OpenTest, StartsAnExecutableWithTheFiles) {
  EXPECT_THAT(open({"-a", makeProgram("tool"), "one ", "-two"}), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), "one \n-two\n");
}

TEST_F(OpenTest, StartsABundlesExecutable) {
  makeProgram("Some.app/Contents/MacOS/Some");
  makeProgram("Some.app/Contents/MacOS/other");
  EXPECT_THAT(open({"-a", folder.path("Some.app"), "x"}), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), "x\n");
}

TEST_F(OpenTest, StartsTheOnlyExecutableOfABundleThatIsNamedOtherwise) {
  makeProgram("Some.menu/Contents/MacOS/other");
  EXPECT_THAT(open({"-a", folder.path("Some.menu"), "x"}), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), "x\n");
}

TEST_F(OpenTest, FindsAnApplicationByItsName) {
  makeProgram("Applications/Some Tool.app/Contents/MacOS/Some Tool");
  EXPECT_THAT(open({"-a", "Some Tool", "x"}, {"HOME=" + folder.path()}), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), "x\n");
}

TEST_F(OpenTest, FilesGoToTheDesktopWithTheirWholePath) {
  makeProgram("bin/xdg-open");
  folder.makeFile("-file", "");
  EXPECT_THAT(open({"./-file"}, {"-C", folder.path(), "PATH=" + folder.path("bin") + ":/usr/bin:/bin"}),
              Pair(0, ""));
  EXPECT_THAT(waitForOpened(), ::testing::EndsWith("/-file\n"));
  EXPECT_TRUE(waitForOpened().starts_with("/"));
}

TEST_F(OpenTest, WhatCannotBeOpenedIsSaid) {
  EXPECT_THAT(open({"-a", "No Such Application"}),
              Pair(1, "Unable to find application named 'No Such Application'\n"));
  EXPECT_THAT(open({"/nonexistent/file"}), Pair(1, "The file /nonexistent/file does not exist.\n"));
  EXPECT_THAT(open({}), Pair(64, HasSubstr("usage: open")));
  EXPECT_THAT(open({"-a"}), Pair(64, HasSubstr("usage: open")));
  EXPECT_THAT(open({"-x"}), Pair(64, HasSubstr("usage: open")));
}

TEST_F(OpenTest, FilesThatAreThereAreHandedOverWithTheirWholePath) {
  folder.makeFile("file");
  EXPECT_THAT(open({"-a", makeProgram("tool"), "file", "absent"}, {"-C", folder.path()}), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), folder.path("file") + "\nabsent\n");
}

/// Root's, with a console of the test's own: a /run that holds nothing but login records.
class RootsOpenTest : public OpenTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }
  /// A program that writes whose it is, and where its home is.
  std::string makeTellingProgram(const std::string& name) {
    const std::string path = makeProgram(name);
    std::ofstream(path) << "#!/bin/sh\necho \"$(id -un) $HOME $SECRET\" > '" << folder.path("part")
                        << "'\nmv '" << folder.path("part") << "' '" << folder.path("opened") << "'\n";
    return path;
  }
  std::string accounts() {
    return folder.makeFile("passwd", "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:" +
                                         folder.path() + ":/bin/sh\n");
  }
  /// `environment` is set for the tool; the account "nobody" has its home in the test's folder.
  std::pair<int, std::string> openAtConsoleOf(const std::string& user, const std::string& what,
                                              const std::string& environment = "SECRET=1") {
    std::string records = folder.makeFile("utmp");
    if (!user.empty()) {
      utmp record{};
      record.ut_type = USER_PROCESS;
      user.copy(record.ut_user, sizeof record.ut_user);
      std::string("tty1").copy(record.ut_line, sizeof record.ut_line);
      std::ofstream(records, std::ios::binary).write(reinterpret_cast<const char*>(&record), sizeof record);
    }
    return runProgram({"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
                       "mount -t tmpfs run /run && cp \"$1\" /run/utmp && mount --bind \"$2\" /etc/passwd &&"
                       " exec env \"$3\" \"$4\" -a \"$5\"",
                       "sh", records, accounts(), environment, folder.path("open"), what});
  }
};

TEST_F(RootsOpenTest, StartsAnApplicationAsTheUserAtTheConsole) {
  makeTellingProgram("Some.app/Contents/MacOS/Some");
  EXPECT_THAT(openAtConsoleOf("nobody", folder.path("Some.app")), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), "nobody " + folder.path() + " \n");
}

TEST_F(RootsOpenTest, FindsAnApplicationByItsNameWhereTheUserAtTheConsoleHasIt) {
  makeTellingProgram("Applications/Some Tool.app/Contents/MacOS/Some Tool");
  EXPECT_THAT(openAtConsoleOf("nobody", "Some Tool", "HOME=/root"), Pair(0, ""));
  EXPECT_EQ(waitForOpened(), "nobody " + folder.path() + " \n");
}

TEST_F(RootsOpenTest, DoesNotLookForAnApplicationInAHomeOfRootsOwn) {
  makeTellingProgram("roots/Applications/Some Tool.app/Contents/MacOS/Some Tool");
  EXPECT_THAT(openAtConsoleOf("nobody", "Some Tool", "HOME=" + folder.path("roots")),
              Pair(1, HasSubstr("Unable to find application")));
}

TEST_F(RootsOpenTest, StartsNothingWithNobodyAtTheConsole) {
  const std::string program = makeTellingProgram("tool");
  EXPECT_THAT(openAtConsoleOf("", program),
              Pair(1, "open: " + program + ": nobody is at the console to open it for\n"));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_FALSE(fs::exists(folder.path("opened")));
}

class ChownTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  }
  tests::TemporaryFolder folder;

  std::pair<int, std::string> run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), kTools + "/chown");
    return runProgram(std::move(arguments));
  }
  /// A folder that belongs to a user.
  std::string makeUsersFolder() {
    fs::create_directory(folder.path("user"));
    EXPECT_EQ(::chown(folder.path("user").c_str(), 1234, 1234), 0);
    return folder.path("user");
  }
};

TEST_F(ChownTest, ChangesOwnerAndGroup) {
  const std::string file = folder.makeFile("file");
  EXPECT_THAT(run({"1234", file}), Pair(0, ""));
  EXPECT_EQ(ownerOf(file), 1234U);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, ::getegid()) << "the group stays";
  EXPECT_THAT(run({"nobody:4321", file}), Pair(0, ""));
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
  EXPECT_EQ(status.st_gid, 4321U);
  EXPECT_THAT(run({"root:wheel", file}), Pair(0, ""));
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, 0U);
}

TEST_F(ChownTest, ALinkThatAUserPlantedIsNotFollowed) {
  const std::string victim = folder.makeFile("victim/file");
  makeUsersFolder();
  fs::create_symlink(victim, folder.path("user/link"));
  fs::create_directory_symlink(folder.path("victim"), folder.path("user/folder"));
  EXPECT_THAT(run({"1234", folder.path("user/link")}), Pair(1, HasSubstr("user/link")));
  EXPECT_THAT(run({"1234", folder.path("user/folder/file")}), Pair(1, HasSubstr("user/folder")));
  EXPECT_THAT(run({"-R", "1234", folder.path("user")}), Pair(1, HasSubstr("user/")));
  EXPECT_EQ(ownerOf(victim), 0U);
  EXPECT_EQ(ownerOf(folder.path("user/link")), 0U) << "nor the link itself";
}

TEST_F(ChownTest, AFolderLinkThatOnlyRootCanPlantIsFollowed) {
  const support::TemporaryFolder roots("/run");  // unlike /tmp, nobody else's on the whole way
  const std::string file = roots.file("real/file");
  fs::create_directory_symlink("real", roots / "alias");
  EXPECT_THAT(run({"1234", roots / "alias/file"}), Pair(0, ""));
  EXPECT_EQ(ownerOf(file), 1234U);
  fs::create_directory_symlink("loop", roots / "loop");
  EXPECT_THAT(run({"1234", roots / "loop/file"}), Pair(1, HasSubstr("loop")));
}

TEST_F(ChownTest, ALinkOfRootsBelowAFolderThatAUserCanRenameIsNotFollowed) {
  const std::string victim = folder.makeFile("victim/file");
  fs::create_directories(makeUsersFolder() + "/roots");
  fs::create_directory_symlink(folder.path("victim"), folder.path("user/roots/link"));
  EXPECT_THAT(run({"1234", folder.path("user/roots/link/file")}), Pair(1, HasSubstr("not root's")));
  EXPECT_EQ(ownerOf(victim), 0U);
}

TEST_F(ChownTest, ARelativePathIsOneOfTheCurrentFolder) {
  folder.makeFile("file");
  fs::current_path(folder.path());
  EXPECT_THAT(run({"1234", "file"}), Pair(0, ""));
  EXPECT_EQ(ownerOf(folder.path("file")), 1234U);
}

TEST_F(ChownTest, AFileWithFurtherNamesIsNotGivenAway) {
  const std::string victim = folder.makeFile("victim");
  makeUsersFolder();
  ASSERT_EQ(::link(victim.c_str(), folder.path("user/name").c_str()), 0);
  EXPECT_THAT(run({"1234", folder.path("user/name")}), Pair(1, HasSubstr("further names")));
  EXPECT_EQ(ownerOf(victim), 0U);
}

TEST_F(ChownTest, AFileOfWhichItIsNotSureThatItHasNoFurtherNamesIsNotGivenAway) {
  makeUsersFolder();
  const std::string file =
      folder.makeFile("user/name (deleted)");  // told from one that has lost its name by nothing
  EXPECT_THAT(run({"1234", file}), Pair(1, HasSubstr("exchanged while it was looked at")));
  EXPECT_EQ(ownerOf(file), 0U);
}

TEST_F(ChownTest, AFifoIsRefusedWithoutBlocking) {
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_THAT(run({"1234", folder.path("fifo")}), Pair(1, HasSubstr("neither a file nor a folder")));
  EXPECT_EQ(ownerOf(folder.path("fifo")), 0U);
}

TEST_F(ChownTest, RecursionChangesAllAndGoesOnAfterAFailure) {
  folder.makeFile("tree/a/b", "");
  folder.makeFile("tree/c", "");
  ASSERT_EQ(::mkfifo(folder.path("tree/fifo").c_str(), 0600), 0);
  EXPECT_THAT(run({"-R", "1234", folder.path("tree")}), Pair(1, HasSubstr("tree/fifo")));
  for (const char* const name : {"tree", "tree/a", "tree/a/b", "tree/c"}) {
    EXPECT_EQ(ownerOf(folder.path(name)), 1234U) << name;
  }
}

TEST_F(ChownTest, WithoutRecursionTheEntriesStay) {
  folder.makeFile("tree/a", "");
  EXPECT_THAT(run({"1234", folder.path("tree")}), Pair(0, ""));
  EXPECT_EQ(ownerOf(folder.path("tree")), 1234U);
  EXPECT_EQ(ownerOf(folder.path("tree/a")), 0U);
}

TEST_F(ChownTest, WrongArgumentsChangeNothing) {
  const std::string file = folder.makeFile("file");
  EXPECT_THAT(run({}), Pair(64, HasSubstr("usage: chown")));
  EXPECT_THAT(run({"1234"}), Pair(64, HasSubstr("usage")));
  EXPECT_THAT(run({"-x", "1234", file}), Pair(64, HasSubstr("usage")));
  EXPECT_THAT(run({"no-such-user", file}), Pair(1, HasSubstr("no such user")));
  EXPECT_THAT(run({"1234:no-such-group", file}), Pair(1, HasSubstr("no such user or group")));
  EXPECT_THAT(run({"4294967295", file}), Pair(1, HasSubstr("no such user")));
  EXPECT_THAT(run({"1234", folder.path("absent")}), Pair(1, HasSubstr("No such file")));
  EXPECT_EQ(ownerOf(file), 0U);
}

}  // namespace
}  // namespace platform
