// Whoever starts a helper chooses its arguments, environment, descriptors, signals and limits.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>

#include "tests/hardening/AttackedComputer.h"

namespace hardening {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Surrounding {
  std::string name;
  std::function<void()> inChild;
};

void closeStreams(std::initializer_list<int> streams) {
  for (const int stream : streams) ::close(stream);
}

void spoilEnvironment() {
  for (const char* name :
       {"PATH", "HOME", "TMPDIR", "LD_LIBRARY_PATH", "LD_PRELOAD", "LD_AUDIT", "GCONV_PATH", "LOCPATH",
        "NLSPATH", "TZDIR", "XDG_DATA_HOME", "HOSTALIASES", "GETCONF_DIR"}) {
    ::setenv(name, "/Users/alice/planted", 1);
  }
  ::setenv("IFS", "/", 1);
  ::setenv("LC_ALL", "xx_XX.bogus", 1);
  ::setenv("TZ", ":/outside/secret", 1);
  ::setenv("MALLOC_CHECK_", "3", 1);
  ::setenv("POSIXLY_CORRECT", "1", 1);
}

void ignoreSignals() {
  for (const int number : {SIGCHLD, SIGPIPE, SIGXFSZ, SIGTERM, SIGINT, SIGHUP, SIGALRM})
    std::signal(number, SIG_IGN);
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_BLOCK, &all, nullptr);
}

void limit(int what, rlim_t most) {
  const auto limited = static_cast<__rlimit_resource>(what);
  rlimit both{};
  if (::getrlimit(limited, &both) != 0) ::_exit(124);
  both.rlim_cur = most;
  if (::setrlimit(limited, &both) != 0) ::_exit(124);
}

std::vector<Surrounding> surroundings() {
  return {{"NoInput", [] { closeStreams({0}); }},
          {"NoOutput", [] { closeStreams({1}); }},
          {"NoErrors", [] { closeStreams({2}); }},
          {"NoStreams",
           [] {
             closeStreams({0, 1, 2});
           }},
          {"ASpoiltEnvironment", spoilEnvironment},
          {"NoMask", [] { ::umask(0); }},
          {"AFullMask", [] { ::umask(0777); }},
          {"IgnoredAndBlockedSignals", ignoreSignals},
          {"FewDescriptors", [] { limit(RLIMIT_NOFILE, 32); }},
          {"NoFileSize", [] { limit(RLIMIT_FSIZE, 0); }},
          {"NoStack", [] { limit(RLIMIT_STACK, 512UL << 10U); }}};
}

class SurroundingsTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }
};

TEST_P(SurroundingsTest, MakeNoDifferenceToWhatAToolDoes) {
  const AttackedComputer computer;
  EXPECT_EQ(computer.run(GetParam().command).exitStatus, 0);
  const Snapshot expected = computer.files();
  const Snapshot outside = computer.outside();
  for (const Surrounding& surrounding : surroundings()) {
    SCOPED_TRACE(surrounding.name);
    computer.restore();
    ASSERT_NE(computer.files(), expected);
    const Finished finished = computer.run(GetParam().command, nullptr, surrounding.inChild);
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
    EXPECT_THAT(differences(expected, computer.files()), IsEmpty());
    EXPECT_THAT(differences(outside, computer.outside()), IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, SurroundingsTest, ::testing::ValuesIn(allForms()), nameOfForm);

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

TEST_F(ArgumentsTest, NoneAtAllNotEvenANameTouchNothing) {
  const AttackedComputer computer;
  const Snapshot before = snapshotOf(computer.path("/Users"));
  for (const char* tool :
       {"/helpers/chowntool", "/helpers/chmodtool", "/helpers/trashtool", "/helpers/killtool"}) {
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
