#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <sstream>

#include "tests/packaging/Installation.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

// What the manual has administrators type, carried out.

namespace packaging {
namespace {

namespace fs = std::filesystem;
using support::contentOf;
using support::runProgram;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr uid_t kAlice = 4300;
constexpr const char* kPlace = "/Library/Application Support";

std::string section(const std::string& title) {
  const std::string manual = contentOf(SOURCE_FOLDER "/resources/manual/Manual.md");
  const std::size_t begin = manual.find("\n### " + title + "\n");
  if (begin == std::string::npos) throw std::runtime_error("no section: " + title);
  return manual.substr(begin, manual.find("\n### ", begin + 1) - begin);
}

/// The lines of a section that are indented, as commands are.
std::string commandsOf(const std::string& title) {
  std::istringstream lines(section(title));
  std::string commands;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("    ")) commands += line.substr(4) + "\n";
  }
  return commands;
}

TEST(ManualCommands, OfCronAreTheProgramWhereverItHasBeenInstalled) {
  const std::string text = section("Every night with cron");
  for (const char* const program :
       {"/usr/local/bin/Quillmend", "/usr/bin/Quillmend",
        "\"/Library/Application Support/Vordenworks/Quillmend.app/Contents/MacOS/Quillmend\""}) {
    EXPECT_THAT(text, HasSubstr(std::string(program) + " -repair")) << program;
  }
  EXPECT_THAT(section("A program of root's"),
              HasSubstr("in /usr/local, or in /usr where the Debian package"));
}

/// Mode, owner, group and access lists of a file or of all below a folder.
std::string rightsOf(const std::string& path) {
  const auto run =
      runProgram({"/usr/bin/getfacl", "--recursive", "--physical", "--numeric", "--absolute-names", path});
  EXPECT_EQ(run.status, 0) << run.output;
  return run.output;
}

/// A Mac's folders below one of the test's own, with an application that alice has put into /Applications.
class CopyOfRootsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: owners are changed";
    folder.makeAccessibleToAll();
    makeSudo();
    folder.file("Applications/Quillmend.app/Contents/MacOS/Quillmend", "#!/bin/sh\n");
    folder.file("Applications/Quillmend.app/Contents/Resources/list", "new");
    giveToAlice(folder / "Applications/Quillmend.app");
    fs::create_directories(place());
  }

  /// Between a Mac's chown(8) and chmod(1) and this system's: the group wheel, and access lists. It notes
  /// what of the copy somebody else than root could change behind any of the commands.
  void makeSudo() {
    const std::string program = folder.file("bin/sudo", R"(#!/bin/sh
set -e
case "$*" in
  "chown root:wheel "*) shift 2; chown root:root "$@" ;;
  "chmod -N "*) shift 2; setfacl --remove-all "$@" ;;
  "chmod -R -N "*) shift 3; setfacl --remove-all --recursive --physical "$@" ;;
  "cp -R "*) shift 2; cp -R ${CP_KEEPS:+--preserve="$CP_KEEPS"} "$@" ;;
  *) "$@" ;;
esac
[ -e Vordenworks/Quillmend.app ] || exit 0
find Vordenworks/Quillmend.app ! -user 0 -o ! -group 0 -o ! -type l -perm /022
getfacl --recursive --physical --skip-base Vordenworks/Quillmend.app
)");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  }

  /// With all below it, and lists by which she may write to each, and to what is made in a folder.
  static void giveToAlice(const std::string& path) {
    const std::string alice = std::to_string(kAlice);
    EXPECT_EQ(runProgram({"/usr/bin/chown", "-R", alice + ":" + alice, path}).status, 0);
    EXPECT_EQ(runProgram({"/usr/bin/chmod", "-R", "a+rwx", path}).status, 0);
    EXPECT_EQ(runProgram({"/usr/bin/setfacl", "-R", "-m", "u:4300:rwx,d:u:4300:rwX", path}).status, 0);
  }

  /// What the section's commands say, at the first that fails the last.
  [[nodiscard]] std::string followTheManual() const {
    std::string commands = commandsOf("A program of root's");
    for (const char* const path : {kPlace, "/Applications/"}) {
      const std::size_t at = commands.find(path);
      if (at == std::string::npos) throw std::runtime_error(commands);
      commands.insert(at, folder.path());
    }
    const support::EnvironmentVariable path("PATH", folder / "bin:/usr/bin:/bin");
    const auto run = runProgram({"/bin/sh", "-e", "-c", commands});
    EXPECT_EQ(run.status, 0) << commands;
    return run.output;
  }

  void expectCopyOfRoots() const {
    EXPECT_THAT(filesBelow(place() + "/Vordenworks/Quillmend.app"),
                ElementsAre("Contents/MacOS/Quillmend", "Contents/Resources/list"));
    EXPECT_EQ(contentOf(place() + "/Vordenworks/Quillmend.app/Contents/Resources/list"), "new");
    EXPECT_EQ(runProgram({place() + "/Vordenworks/Quillmend.app/Contents/MacOS/Quillmend"}).status, 0);
    const std::string rights = rightsOf(place() + "/Vordenworks/Quillmend.app");
    EXPECT_THAT(rights, HasSubstr("# owner: 0\n# group: 0\nuser::rwx\ngroup::r-x\nother::r-x\n"));
    EXPECT_FALSE(std::regex_search(rights, std::regex("4300|group::.w|other::.w|mask|default"))) << rights;
  }

  [[nodiscard]] std::string place() const { return folder.path() + kPlace; }

  const support::TemporaryFolder folder;
};

TEST_F(CopyOfRootsTest, IsRootsAloneFromTheFirst) {
  ASSERT_EQ(followTheManual(), "");
  expectCopyOfRoots();
}

TEST_F(CopyOfRootsTest, IsRootsAloneInAFolderThatWasAlices) {
  const std::string neighbour =
      folder.file(std::string(kPlace).substr(1) + "/Vordenworks/Shared Resources/TGShortcutKeyManager");
  giveToAlice(place() + "/Vordenworks");
  const std::string rights = rightsOf(fs::path(neighbour).parent_path());
  ASSERT_EQ(followTheManual(), "");
  expectCopyOfRoots();
  EXPECT_EQ(rightsOf(fs::path(neighbour).parent_path()), rights);
  EXPECT_EQ(rightsOf(place() + "/Vordenworks").find("user::rwx\ngroup::r-x\nother::r-x\n\n"),
            std::string("# file: " + place() + "/Vordenworks\n# owner: 0\n# group: 0\n").size());
}

TEST_F(CopyOfRootsTest, IsRootsAloneInTheEndWhereCpKeepsModesAndListsAsWell) {
  const support::EnvironmentVariable kept("CP_KEEPS", "mode");
  EXPECT_THAT(followTheManual(), HasSubstr("user:4300:rwx\n"));
  expectCopyOfRoots();
}

TEST_F(CopyOfRootsTest, HasNothingOfAnOlderOne) {
  folder.file(std::string(kPlace).substr(1) + "/Vordenworks/Quillmend.app/Contents/Resources/list", "old");
  folder.file(std::string(kPlace).substr(1) + "/Vordenworks/Quillmend.app/Contents/Resources/stale");
  ASSERT_EQ(followTheManual(), "");
  expectCopyOfRoots();
}

TEST_F(CopyOfRootsTest, IsWhatLaunchdIsToldToStart) {
  EXPECT_THAT(commandsOf("A program of root's"), HasSubstr("cd \"" + std::string(kPlace) + "\"\n"));
  EXPECT_THAT(contentOf(SOURCE_FOLDER "/packaging/com.vordenworks.Quillmend.repair.plist"),
              HasSubstr("<string>" + std::string(kPlace) +
                        "/Vordenworks/Quillmend.app/Contents/MacOS/Quillmend</string>"));
}

}  // namespace
}  // namespace packaging
