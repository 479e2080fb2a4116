#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "platform/linux/ComputerNames.h"
#include "tests/support/PathStatus.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::ProgramRun;
using support::runProgram;
using ::testing::AllOf;
using ::testing::Field;
using ::testing::HasSubstr;

const std::string kTools = SHARED_SUPPORT;

/// The program has ended with that status and has written that.
template <typename Output>
auto Ended(int status, Output output) {
  return AllOf(Field(&ProgramRun::status, status), Field(&ProgramRun::output, output));
}

uid_t ownerOf(const std::string& path) {
  return support::statusAt(path).st_uid;
}

class ComputerNamesTest : public ::testing::Test {
 protected:
  support::TemporaryFolder folder;
  ComputerNames names{folder.path()};
};

TEST_F(ComputerNamesTest, NothingIsSetWithoutTheFiles) {
  EXPECT_EQ(names.computerName(), std::nullopt);
  EXPECT_EQ(names.localHostName(), std::nullopt);
}

TEST_F(ComputerNamesTest, ThePrettyNameIsForPeopleAndTheFirstLabelForTheNetwork) {
  folder.file("hostname", "# set by hand\n\n render7.example.org \n");
  EXPECT_EQ(names.computerName(), "render7.example.org");
  EXPECT_EQ(names.localHostName(), "render7");
  folder.file("machine-info", "CHASSIS=desktop\nPRETTY_HOSTNAME=\"Alice's \\\"Render\\\" Mac\"\n");
  EXPECT_EQ(names.computerName(), "Alice's \"Render\" Mac");
  EXPECT_EQ(names.localHostName(), "render7");
}

TEST_F(ComputerNamesTest, ANameThatNobodyGaveIsNone) {
  for (const char* const name : {"localhost\n", "(none)\n", "", "\n", "# only a comment\n"}) {
    folder.file("hostname", name);
    EXPECT_EQ(names.computerName(), std::nullopt) << name;
    EXPECT_EQ(names.localHostName(), std::nullopt) << name;
  }
  folder.file("hostname", "localhost.localdomain\n");
  EXPECT_EQ(names.localHostName(), std::nullopt);
}

TEST_F(ComputerNamesTest, APrettyNameAloneIsNoLocalHostName) {
  folder.file("machine-info", "PRETTY_HOSTNAME=Render\n");
  EXPECT_EQ(names.computerName(), "Render");
  EXPECT_EQ(names.localHostName(), std::nullopt);
}

TEST(Scutil, PrintsTheNameOrThatItIsNotSet) {
  const ComputerNames names("/etc");
  const auto name = names.computerName();
  const auto host = names.localHostName();
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "ComputerName"}),
              Ended(name ? 0 : 1, name.value_or("ComputerName: not set") + "\n"));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "LocalHostName"}),
              Ended(host ? 0 : 1, host.value_or("LocalHostName: not set") + "\n"));
}

TEST(Scutil, OtherArgumentsAreAnError) {
  EXPECT_THAT(runProgram({kTools + "/scutil"}), Ended(64, HasSubstr("usage: scutil")));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--set", "ComputerName"}), Ended(64, HasSubstr("usage")));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "HostName"}), Ended(64, HasSubstr("usage")));
  EXPECT_THAT(runProgram({kTools + "/scutil", "--get", "ComputerName", "x"}), Ended(64, HasSubstr("usage")));
}

/// Opens as an ordinary user; root opens for whoever sits at the console.
class OpenTest : public ::testing::Test {
 protected:
  OpenTest() {
    fs::permissions(folder.path(), fs::perms::all);
    for (const char* const tool : {"open", "asuser"}) fs::copy_file(kTools + "/" + tool, folder / tool);
  }

  support::TemporaryFolder folder;

  ProgramRun open(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {}) {
    std::vector<std::string> command;
    if (::geteuid() == 0) command = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    if (!environment.empty()) command.emplace_back("/usr/bin/env");
    command.insert(command.end(), environment.begin(), environment.end());
    command.push_back(folder / "open");
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command);
  }

  /// A program that writes its arguments, one a line, into the file "opened".
  std::string makeProgram(const std::string& name) {
    std::string path = folder.file(name, "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + folder / "part" +
                                             "'\nmv '" + folder / "part" + "' '" + folder / "opened" + "'\n");
    fs::permissions(path, fs::perms::all);
    return path;
  }
  std::string waitForOpened() {
    for (int turns = 0; turns < 5000 && !fs::exists(folder / "opened"); ++turns) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return folder.content("opened");
  }
};

TEST_F(OpenTest, StartsAnExecutableWithTheFiles) {
  EXPECT_THAT(open({"-a", makeProgram("tool"), "one ", "-two"}), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), "one \n-two\n");
}

TEST_F(OpenTest, StartsABundlesExecutable) {
  makeProgram("Some.app/Contents/MacOS/Some");
  makeProgram("Some.app/Contents/MacOS/other");
  EXPECT_THAT(open({"-a", folder / "Some.app", "x"}), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), "x\n");
}

TEST_F(OpenTest, StartsTheOnlyExecutableOfABundleThatIsNamedOtherwise) {
  makeProgram("Some.menu/Contents/MacOS/other");
  EXPECT_THAT(open({"-a", folder / "Some.menu", "x"}), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), "x\n");
}

TEST_F(OpenTest, FindsAnApplicationByItsName) {
  makeProgram("Applications/Some Tool.app/Contents/MacOS/Some Tool");
  EXPECT_THAT(open({"-a", "Some Tool", "x"}, {"HOME=" + folder.path()}), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), "x\n");
}

TEST_F(OpenTest, FilesGoToTheDesktopWithTheirWholePath) {
  makeProgram("bin/xdg-open");
  folder.file("-file", "");
  EXPECT_THAT(open({"./-file"}, {"-C", folder.path(), "PATH=" + folder / "bin" + ":/usr/bin:/bin"}),
              Ended(0, ""));
  EXPECT_THAT(waitForOpened(), ::testing::EndsWith("/-file\n"));
  EXPECT_TRUE(waitForOpened().starts_with("/"));
}

TEST_F(OpenTest, WhatCannotBeOpenedIsSaid) {
  EXPECT_THAT(open({"-a", "No Such Application"}),
              Ended(1, "Unable to find application named 'No Such Application'\n"));
  EXPECT_THAT(open({"/nonexistent/file"}), Ended(1, "The file /nonexistent/file does not exist.\n"));
  EXPECT_THAT(open({}), Ended(64, HasSubstr("usage: open")));
  EXPECT_THAT(open({"-a"}), Ended(64, HasSubstr("usage: open")));
  EXPECT_THAT(open({"-x"}), Ended(64, HasSubstr("usage: open")));
}

TEST_F(OpenTest, FilesThatAreThereAreHandedOverWithTheirWholePath) {
  folder.file("file");
  EXPECT_THAT(open({"-a", makeProgram("tool"), "file", "absent"}, {"-C", folder.path()}), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), folder / "file" + "\nabsent\n");
}

/// Root's, with a console of the test's own: a /run that holds nothing but login records.
class RootsOpenTest : public OpenTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }
  /// A program that writes whose it is, and where its home is.
  std::string makeTellingProgram(const std::string& name) {
    std::string path = makeProgram(name);
    std::ofstream(path) << "#!/bin/sh\necho \"$(id -un) $HOME $SECRET\" > '" << folder / "part"
                        << "'\nmv '" << folder / "part"
                        << "' '" << folder / "opened"
                        << "'\n";
    return path;
  }
  std::string accounts() {
    return folder.file("passwd", "root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:" +
                                     folder.path() + ":/bin/sh\n");
  }
  /// `environment` is set for the tool; the account "nobody" has its home in the test's folder.
  ProgramRun openAtConsoleOf(const std::string& user, const std::string& what,
                             const std::string& environment = "SECRET=1") {
    std::string records = folder.file("utmp");
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
                       "sh", records, accounts(), environment, folder / "open", what});
  }
};

TEST_F(RootsOpenTest, StartsAnApplicationAsTheUserAtTheConsole) {
  makeTellingProgram("Some.app/Contents/MacOS/Some");
  EXPECT_THAT(openAtConsoleOf("nobody", folder / "Some.app"), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), "nobody " + folder.path() + " \n");
}

TEST_F(RootsOpenTest, FindsAnApplicationByItsNameWhereTheUserAtTheConsoleHasIt) {
  makeTellingProgram("Applications/Some Tool.app/Contents/MacOS/Some Tool");
  EXPECT_THAT(openAtConsoleOf("nobody", "Some Tool", "HOME=/root"), Ended(0, ""));
  EXPECT_EQ(waitForOpened(), "nobody " + folder.path() + " \n");
}

TEST_F(RootsOpenTest, DoesNotLookForAnApplicationInAHomeOfRootsOwn) {
  makeTellingProgram("roots/Applications/Some Tool.app/Contents/MacOS/Some Tool");
  EXPECT_THAT(openAtConsoleOf("nobody", "Some Tool", "HOME=" + folder / "roots"),
              Ended(1, HasSubstr("Unable to find application")));
}

TEST_F(RootsOpenTest, StartsNothingWithNobodyAtTheConsole) {
  const std::string program = makeTellingProgram("tool");
  EXPECT_THAT(openAtConsoleOf("", program),
              Ended(1, "open: " + program + ": nobody is at the console to open it for\n"));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_FALSE(fs::exists(folder / "opened"));
}

class ChownTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  }
  support::TemporaryFolder folder;

  ProgramRun run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), kTools + "/chown");
    return runProgram(arguments);
  }
  /// A folder that belongs to a user.
  std::string makeUsersFolder() {
    fs::create_directory(folder / "user");
    EXPECT_EQ(::chown((folder / "user").c_str(), 1234, 1234), 0);
    return folder / "user";
  }
};

TEST_F(ChownTest, ChangesOwnerAndGroup) {
  const std::string file = folder.file("file");
  EXPECT_THAT(run({"1234", file}), Ended(0, ""));
  EXPECT_EQ(ownerOf(file), 1234U);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, ::getegid()) << "the group stays";
  EXPECT_THAT(run({"nobody:4321", file}), Ended(0, ""));
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
  EXPECT_EQ(status.st_gid, 4321U);
  EXPECT_THAT(run({"root:wheel", file}), Ended(0, ""));
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, 0U);
}

TEST_F(ChownTest, ALinkThatAUserPlantedIsNotFollowed) {
  const std::string victim = folder.file("victim/file");
  makeUsersFolder();
  fs::create_symlink(victim, folder / "user/link");
  fs::create_directory_symlink(folder / "victim", folder / "user/folder");
  EXPECT_THAT(run({"1234", folder / "user/link"}), Ended(1, HasSubstr("user/link")));
  EXPECT_THAT(run({"1234", folder / "user/folder/file"}), Ended(1, HasSubstr("user/folder")));
  EXPECT_THAT(run({"-R", "1234", folder / "user"}), Ended(1, HasSubstr("user/")));
  EXPECT_EQ(ownerOf(victim), 0U);
  EXPECT_EQ(ownerOf(folder / "user/link"), 0U) << "nor the link itself";
}

TEST_F(ChownTest, AFolderLinkThatOnlyRootCanPlantIsFollowed) {
  const support::TemporaryFolder roots("/run");  // unlike /tmp, nobody else's on the whole way
  const std::string file = roots.file("real/file");
  fs::create_directory_symlink("real", roots / "alias");
  EXPECT_THAT(run({"1234", roots / "alias/file"}), Ended(0, ""));
  EXPECT_EQ(ownerOf(file), 1234U);
  fs::create_directory_symlink("loop", roots / "loop");
  EXPECT_THAT(run({"1234", roots / "loop/file"}), Ended(1, HasSubstr("loop")));
}

TEST_F(ChownTest, ALinkOfRootsBelowAFolderThatAUserCanRenameIsNotFollowed) {
  const std::string victim = folder.file("victim/file");
  fs::create_directories(makeUsersFolder() + "/roots");
  fs::create_directory_symlink(folder / "victim", folder / "user/roots/link");
  EXPECT_THAT(run({"1234", folder / "user/roots/link/file"}), Ended(1, HasSubstr("not root's")));
  EXPECT_EQ(ownerOf(victim), 0U);
}

TEST_F(ChownTest, ARelativePathIsOneOfTheCurrentFolder) {
  folder.file("file");
  fs::current_path(folder.path());
  EXPECT_THAT(run({"1234", "file"}), Ended(0, ""));
  EXPECT_EQ(ownerOf(folder / "file"), 1234U);
}

TEST_F(ChownTest, AFileWithFurtherNamesIsNotGivenAway) {
  const std::string victim = folder.file("victim");
  makeUsersFolder();
  ASSERT_EQ(::link(victim.c_str(), (folder / "user/name").c_str()), 0);
  EXPECT_THAT(run({"1234", folder / "user/name"}), Ended(1, HasSubstr("further names")));
  EXPECT_EQ(ownerOf(victim), 0U);
}

TEST_F(ChownTest, AFileOfWhichItIsNotSureThatItHasNoFurtherNamesIsNotGivenAway) {
  makeUsersFolder();
  const std::string file =
      folder.file("user/name (deleted)");  // told from one that has lost its name by nothing
  EXPECT_THAT(run({"1234", file}), Ended(1, HasSubstr("exchanged while it was looked at")));
  EXPECT_EQ(ownerOf(file), 0U);
}

TEST_F(ChownTest, AFifoIsRefusedWithoutBlocking) {
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_THAT(run({"1234", folder / "fifo"}), Ended(1, HasSubstr("neither a file nor a folder")));
  EXPECT_EQ(ownerOf(folder / "fifo"), 0U);
}

TEST_F(ChownTest, RecursionChangesAllAndGoesOnAfterAFailure) {
  folder.file("tree/a/b", "");
  folder.file("tree/c", "");
  ASSERT_EQ(::mkfifo((folder / "tree/fifo").c_str(), 0600), 0);
  EXPECT_THAT(run({"-R", "1234", folder / "tree"}), Ended(1, HasSubstr("tree/fifo")));
  for (const char* const name : {"tree", "tree/a", "tree/a/b", "tree/c"}) {
    EXPECT_EQ(ownerOf(folder / name), 1234U) << name;
  }
}

TEST_F(ChownTest, WithoutRecursionTheEntriesStay) {
  folder.file("tree/a", "");
  EXPECT_THAT(run({"1234", folder / "tree"}), Ended(0, ""));
  EXPECT_EQ(ownerOf(folder / "tree"), 1234U);
  EXPECT_EQ(ownerOf(folder / "tree/a"), 0U);
}

TEST_F(ChownTest, WrongArgumentsChangeNothing) {
  const std::string file = folder.file("file");
  EXPECT_THAT(run({}), Ended(64, HasSubstr("usage: chown")));
  EXPECT_THAT(run({"1234"}), Ended(64, HasSubstr("usage")));
  EXPECT_THAT(run({"-x", "1234", file}), Ended(64, HasSubstr("usage")));
  EXPECT_THAT(run({"no-such-user", file}), Ended(1, HasSubstr("no such user")));
  EXPECT_THAT(run({"1234:no-such-group", file}), Ended(1, HasSubstr("no such user or group")));
  EXPECT_THAT(run({"4294967295", file}), Ended(1, HasSubstr("no such user")));
  EXPECT_THAT(run({"1234", folder / "absent"}), Ended(1, HasSubstr("No such file")));
  EXPECT_EQ(ownerOf(file), 0U);
}

}  // namespace
}  // namespace platform
