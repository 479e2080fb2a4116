// Whoever starts a program of root's chooses its arguments, environment, descriptors, signals and limits.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/hardening/AttackedComputer.h"
#include "tests/hardening/Surroundings.h"

namespace hardening {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class SurroundingsTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// What a form has left: of a helper's the files, because names in a trash tell the time.
  static Snapshot stateOf(const AttackedComputer& computer) {
    return GetParam().isVerb() ? computer.homes() : computer.files();
  }
};

TEST_P(SurroundingsTest, MakeNoDifferenceToWhatAToolDoes) {
  const AttackedComputer computer;
  EXPECT_EQ(computer.run(GetParam().command).exitStatus, 0);
  const Snapshot expected = stateOf(computer);
  const Snapshot outside = computer.outside();
  for (const Surrounding& surrounding : surroundings()) {
    SCOPED_TRACE(surrounding.name);
    computer.restore();
    ASSERT_NE(stateOf(computer), expected);
    const Finished finished = computer.run(GetParam().command, nullptr, surrounding.inChild);
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
    EXPECT_THAT(differences(expected, stateOf(computer)), IsEmpty());
    EXPECT_THAT(differences(outside, computer.outside()), IsEmpty());
  }
}

/// Else a file that it opens would get its messages.
TEST_P(SurroundingsTest, StreamsThatWereClosedLeadToTheNullDevice) {
  const AttackedComputer computer;
  int streams = 0;
  const auto look = [&streams](const Call& call) {
    if (call.number != SYS_exit_group) return kProceed;
    for (const char* stream : {"0", "1", "2"}) {
      struct stat status {};
      const std::string file = "/proc/" + std::to_string(call.process) + "/fd/" + stream;
      const bool isNull =
          ::stat(file.c_str(), &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == ::makedev(1, 3);
      streams += isNull ? 1 : 0;
    }
    return kProceed;
  };
  const auto closeAll = [] { closeStreams({0, 1, 2}); };
  EXPECT_EQ(computer.run(GetParam().command, look, closeAll, {SYS_close_range, SYS_exit_group}).exitStatus,
            0);
  EXPECT_EQ(streams, 3);
}

INSTANTIATE_TEST_SUITE_P(Forms, SurroundingsTest, ::testing::ValuesIn(formsOfAll()), nameOfForm);

/// A library that leaves a mark where it is loaded, under the names of those that the programs stand on or
/// load, and of one that the system has not.
class LibrariesTest : public ::testing::TestWithParam<Form> {
 protected:
  static constexpr const char* kAbsent = "libnss_absent.so.2";

  void SetUp() override {
    QUILLMEND_NEEDS_ROOT_HERE();
    exitStatus_ = computer_.run(GetParam().command).exitStatus;
    // There is nobody at the console, and the computer has no name.
    const bool saysNo = GetParam().name == "OpenAsNobody" || GetParam().name == "TellName";
    EXPECT_EQ(exitStatus_, saysNo ? 1 : 0);
  }

  /// Those that keep their environment, for what they start, take from where it points what the system has
  /// not.
  [[nodiscard]] static bool startsOnceMore() {
    return !GetParam().runs("asuser") && !GetParam().runs("open") && !GetParam().runs("ditto") &&
           !GetParam().runs("scutil");
  }

  static constexpr std::array kNames = {"libc.so.6",         "libz.so.1",   "libsystemd.so.0",
                                        "libnss_files.so.2", "libcap.so.2", kAbsent};

  static void look(const char* where) { ::setenv("LD_LIBRARY_PATH", where, 1); }

  void plant(const char* name) const {
    std::filesystem::copy_file(PLANTED_LIBRARY, computer_.path(std::string("/Users/alice/planted/") + name));
  }
  [[nodiscard]] bool isMarked() const {
    return std::filesystem::exists(computer_.path("/planted-was-loaded"));
  }

  AttackedComputer computer_;
  int exitStatus_ = -1;  ///< of a run where nothing is planted
};

TEST_P(LibrariesTest, OfAUsersAreNotLoadedWhereTheEnvironmentPointsToThem) {
  std::ofstream(computer_.path("/etc/nsswitch.conf")) << "passwd: absent files\ngroup: absent files\n";
  for (const char* name : kNames) {
    if (name == kAbsent && !startsOnceMore()) continue;
    SCOPED_TRACE(name);
    computer_.restore();
    computer_.makeFolder("/Users/alice/planted");
    plant(name);
    const Finished finished =
        computer_.run(GetParam().command, nullptr, [] { look("/Users/alice/planted"); });
    EXPECT_EQ(finished.exitStatus, exitStatus_) << finished.errors;
    EXPECT_FALSE(isMarked());
  }
}

/// Else nothing above could fail.
TEST_P(LibrariesTest, ThatArePlantedLeaveTheirMark) {
  computer_.makeFolder("/Users/alice/planted");
  plant("libcap.so.2");
  const auto preload = [] { ::setenv("LD_PRELOAD", "/Users/alice/planted/libcap.so.2", 1); };
  EXPECT_EQ(computer_.run(GetParam().command, nullptr, preload).exitStatus, exitStatus_);
  EXPECT_TRUE(isMarked());
}

std::vector<Form> formsThatLoad() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return form.name != "Remove" && form.name != "CopyInto"; });
  const std::string tree = "/Users/alice/jobs/tree";
  forms.push_back({"Kill", {"/helpers/killtool"}, tree});
  forms.push_back({"ChownTree", {"/helpers/chowntool", "-R", "alice", tree}, tree});
  forms.push_back({"Chown", {"/verbs/chown", "-R", "alice", tree}, tree});
  forms.push_back({"TrashOfNobodys", {"/helpers/trashtool", "/outside/trash"}, tree});
  forms.push_back({"BecomeUser", {"/verbs/asuser", "alice", "--", "/usr/bin/true"}, tree});
  forms.push_back({"OpenAsNobody", {"/verbs/open", tree}, tree});
  forms.push_back({"Pack", {"/verbs/ditto", "-ck", "--keepParent", tree, "/Users/alice/archive.zip"}, tree});
  forms.push_back({"TellName", {"/verbs/scutil", "--get", "LocalHostName"}, tree});
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, LibrariesTest, ::testing::ValuesIn(formsThatLoad()), nameOfForm);

using Arguments = std::vector<std::string>;

class ArgumentsTest : public ::testing::Test {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  static Arguments with(const std::string& tool, const Arguments& arguments) {
    Arguments command = {"/helpers/" + tool};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }
};

TEST_F(ArgumentsTest, ThatAreEmptyMissingOrTooManyTouchNothing) {
  const AttackedComputer computer;
  const std::string tree = "/Users/alice/jobs/tree";
  const std::string endless(100'000, '7');
  const std::vector<Arguments> wrong = {{},
                                        {""},
                                        {"", ""},
                                        {"", "", ""},
                                        {"-R"},
                                        {"-R", ""},
                                        {"-R", "", ""},
                                        {"-R", "root", ""},
                                        {"-R", "", tree},
                                        {"-R", "755", tree, ""},
                                        {"-r", "755", tree},
                                        {"--", "755", tree},
                                        {"755", tree, "-R"},
                                        {"-R", "755", tree, tree},
                                        {"-spooldir", ""},
                                        {"-dircontents", ""},
                                        {"-dircontents", "-spooldir", tree},
                                        {"", tree},
                                        {"-R", endless, tree},
                                        {" ", tree}};
  const Snapshot before = snapshotOf(computer.path("/Users"));
  for (const char* tool : {"chowntool", "chmodtool", "trashtool", "killtool"}) {
    for (const Arguments& arguments : wrong) {
      if (arguments.empty() && std::string(tool) == "killtool") continue;  // that is its command line
      const Finished finished = computer.run(with(tool, arguments));
      EXPECT_EQ(finished.exitStatus, 64) << tool << " " << ::testing::PrintToString(arguments).substr(0, 200);
      EXPECT_THAT(finished.errors, HasSubstr(tool));
    }
  }
  EXPECT_THAT(differences(before, snapshotOf(computer.path("/Users"))), IsEmpty());
}

TEST_F(ArgumentsTest, ThatAVerbDoesNotTakeTouchNothing) {
  const AttackedComputer computer;
  const std::string tree = "/Users/alice/jobs/tree";
  const std::vector<Arguments> wrong = {{},
                                        {""},
                                        {"-"},
                                        {"--"},
                                        {"-Rdf"},
                                        {"-p"},
                                        {"-f"},
                                        {tree},
                                        {"", ""},
                                        {"", tree},
                                        {"-z", tree},
                                        {"--", tree},
                                        {"-R", "--", tree},
                                        {"-Rdf", tree, tree},
                                        {"-p", tree, tree},
                                        {"-fpR", tree, tree, tree},
                                        {std::string(100'000, 'f'), tree}};
  const Snapshot before = snapshotOf(computer.path("/Users"));
  for (const char* verb : {"cp", "mv", "rm", "mkdir"}) {
    for (Arguments command : wrong) {
      command.insert(command.begin(), std::string("/verbs/") + verb);
      const Finished finished = computer.run(command);
      EXPECT_EQ(finished.exitStatus, 64) << ::testing::PrintToString(command).substr(0, 200);
      EXPECT_THAT(finished.errors, HasSubstr(verb));
    }
  }
  for (const Arguments& command :
       {Arguments{"/verbs/rm", "-Rdf", ""}, Arguments{"/verbs/mkdir", "-p", ""},
        Arguments{"/verbs/mv", "-f", "", tree}, Arguments{"/verbs/cp", "-fpR", tree + "/file", ""}}) {
    EXPECT_EQ(computer.run(command).exitStatus, 1) << "an empty path: " << command.front();
  }
  EXPECT_THAT(differences(before, snapshotOf(computer.path("/Users"))), IsEmpty());
}

TEST_F(ArgumentsTest, ThatChownDoesNotTakeTouchNothing) {
  const AttackedComputer computer;
  const std::string tree = "/Users/alice/jobs/tree";
  const std::string endless(100'000, '7');
  const std::vector<Arguments> unknown = {{},
                                          {""},
                                          {"-"},
                                          {"-R"},
                                          {"bob"},
                                          {"-R", ""},
                                          {"-R", "bob"},
                                          {"-r", "bob", tree},
                                          {tree},
                                          {"-h", tree},
                                          {"--", "bob", tree},
                                          {"-R", "-R", "bob", tree}};
  const std::vector<Arguments> refused = {{"", tree},
                                          {" ", tree},
                                          {":", tree},
                                          {"nobody-of-here", tree},
                                          {"bob:none", tree},
                                          {"4300:", tree},
                                          {"4294967295", tree},
                                          {"4300:4294967295", tree},
                                          {"99999999999", tree},
                                          {"bob", ""},
                                          {"bob", "", ""},
                                          {"bob", "/"},
                                          {"-R", "bob", "/"},
                                          {"-R", "bob", "//"},
                                          {"-R", "bob", "."},
                                          {"-R", "bob", "none"},
                                          {endless, tree},
                                          {"bob", tree + "/" + endless}};
  const Snapshot before = snapshotOf(computer.path("/Users"));
  const Snapshot outside = computer.outside();
  for (const auto& [status, commands] : {std::pair{64, unknown}, std::pair{1, refused}}) {
    for (Arguments command : commands) {
      command.insert(command.begin(), "/verbs/chown");
      const Finished finished = computer.run(command);
      EXPECT_EQ(finished.exitStatus, status) << ::testing::PrintToString(command).substr(0, 200);
      EXPECT_THAT(finished.errors, HasSubstr("chown: "));
    }
  }
  EXPECT_THAT(differences(before, snapshotOf(computer.path("/Users"))), IsEmpty());
  EXPECT_THAT(differences(outside, computer.outside()), IsEmpty());
}

TEST_F(ArgumentsTest, NamesOfAVerbsCannotLookLikeLinesOfTheirOwn) {
  const AttackedComputer computer;
  const Finished finished =
      computer.run({"/verbs/mv", "-f", "/Users/alice/a\nrm: b\x1b[2J", "/Users/alice/c"});
  EXPECT_EQ(finished.exitStatus, 1);
  EXPECT_THAT(finished.errors, HasSubstr("mv: /Users/alice/a\\nrm: b\\033[2J: "));
}

TEST_F(ArgumentsTest, NoneAtAllNotEvenANameTouchNothing) {
  const AttackedComputer computer;
  const Snapshot before = snapshotOf(computer.path("/Users"));
  for (const char* tool :
       {"/helpers/chowntool", "/helpers/chmodtool", "/helpers/trashtool", "/helpers/killtool", "/verbs/cp",
        "/verbs/mv", "/verbs/rm", "/verbs/mkdir", "/verbs/chown"}) {
    const auto becomeNameless = [tool] {
      char* const none[] = {nullptr};
      ::execv(tool, none);
    };
    const Finished finished = computer.run({tool}, nullptr, becomeNameless);
    EXPECT_EQ(finished.exitStatus, std::string(tool).ends_with("killtool") ? 0 : 64) << finished.errors;
  }
  EXPECT_THAT(differences(before, snapshotOf(computer.path("/Users"))), IsEmpty());
}

TEST_F(ArgumentsTest, APathThatNoFileCanHaveIsAFailureAndNoMore) {
  const AttackedComputer computer;
  const Snapshot before = snapshotOf(computer.path("/Users"));
  std::string slashes(100'000, '/');
  const std::vector<Arguments> wrong = {{"/" + std::string(100'000, 'a')}, {slashes + "Users/alice/none"}};
  for (const Arguments& arguments : wrong) {
    const Finished finished = computer.run(with("trashtool", arguments));
    EXPECT_THAT(finished.exitStatus, ::testing::AnyOf(0, 1));
  }
  EXPECT_EQ(computer.run(with("trashtool", {slashes})).exitStatus, 77);
  EXPECT_THAT(differences(before, snapshotOf(computer.path("/Users"))), IsEmpty());
}

}  // namespace
}  // namespace hardening
