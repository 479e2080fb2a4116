// The programs that root runs under valgrind's memcheck, each in its forms, over a tree with odd entries.
#include <gmock/gmock.h>
#include <linux/close_range.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/hardening/OwnProcesses.h"
#include "tests/support/RunningProgram.h"

namespace hardening {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

constexpr int kFound = 99;  // an exit status that no tool has

/// Debian's valgrind is a script that sets LD_LIBRARY_PATH, with which the programs would start once more.
const char* valgrind() {
  constexpr const char* kBehindTheScript = "/usr/bin/valgrind.bin";
  return std::filesystem::exists(kBehindTheScript) ? kBehindTheScript : "/usr/bin/valgrind";
}

/// What is still reachable at the end is the C and the C++ library's own: the loader's lists of libraries
/// that were loaded for the account database, and the memory that exceptions would be made in.
const std::vector<std::string> kMemcheck = {
    valgrind(),          "--error-exitcode=" + std::to_string(kFound),
    "--leak-check=full", "--errors-for-leak-kinds=definite,indirect,possible",
    "--track-fds=yes",   "--vgdb=no"};

/// fchmodat2(2), younger than Debian's valgrind: to the program it looks like a kernel without it.
const std::string kUnknownCall = "WARNING: unhandled amd64-linux syscall: 452";

int occurrences(const std::string& text, const std::string& words) {
  int count = 0;
  for (std::size_t at = text.find(words); at != std::string::npos; at = text.find(words, at + 1)) ++count;
  return count;
}

/// The command under memcheck, which finds nothing.
void examine(const AttackedComputer& computer, std::vector<std::string> command,
             const std::function<void()>& inChild = nullptr) {
  computer.makeFolder("/tmp", 01777);  // valgrind's own
  command.insert(command.begin(), kMemcheck.begin(), kMemcheck.end());
  // What the test was started with itself.
  const auto prepare = [&inChild] {
    ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    if (inChild) inChild();
  };
  const Finished finished = computer.run(command, nullptr, prepare);
  EXPECT_THAT(finished.exitStatus, AnyOf(0, 1)) << finished.errors;
  EXPECT_THAT(finished.errors, HasSubstr("ERROR SUMMARY: 0 errors"));
  EXPECT_THAT(finished.errors, HasSubstr("FILE DESCRIPTORS: 3 open (3 std) at exit"));
  EXPECT_EQ(occurrences(finished.errors, "WARNING: unhandled"), occurrences(finished.errors, kUnknownCall));
}

class MemcheckTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT_HERE();
    ASSERT_TRUE(std::filesystem::exists(kMemcheck.front())) << "packaging/install-dependencies test";
  }

  void addOddEntries() const {
    const std::string tree = GetParam().tree;
    if (tree.empty()) return;
    const auto at = [&](const char* name) { return computer_.path(tree + "/" + name); };
    std::filesystem::create_hard_link(at("file"), at("second-name"));
    std::filesystem::create_symlink("/outside/secret", at("link"));
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
    computer_.makeFile(tree + "/set-id", 04755);
    computer_.makeFile(tree + "/a\nb\\\xff");
    computer_.makeFolder(tree + "/closed", 0);
  }

  AttackedComputer computer_;
};

TEST_P(MemcheckTest, FindsNothing) {
  addOddEntries();
  examine(computer_, GetParam().command);
}

std::vector<Form> theFormsOfHelpers() {
  std::vector<Form> forms = allForms();
  forms.push_back({"Kill", {"/helpers/killtool"}, ""});
  forms.push_back({"Missing", {"/helpers/chmodtool", "-R", "a-w", "/Users/alice/missing"}, ""});
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, MemcheckTest, ::testing::ValuesIn(theFormsOfHelpers()), nameOfForm);
INSTANTIATE_TEST_SUITE_P(Verbs, MemcheckTest, ::testing::ValuesIn(verbForms()), nameOfForm);

/// One that ends when it is asked to, and one that has to be forced.
TEST(MemcheckOfKilltoolTest, FindsNothingWhereDaemonsRun) {
  QUILLMEND_NEEDS_ROOT_HERE();
  amongOwnProcesses([](const AttackedComputer& computer) {
    const std::string program = installTarget(computer, kQmaster);
    const support::RunningProgram polite(program, {"polite"});
    const support::RunningProgram stubborn(program, {"stubborn"});
    std::filesystem::copy_file(HELD_PROCESSES, computer.path("/held"));
    examine(computer, {"/helpers/killtool"}, [] { ::setenv("LD_PRELOAD", "/held", 1); });
    EXPECT_TRUE(polite.hasEnded());
    EXPECT_TRUE(stubborn.hasEnded());
  });
}

}  // namespace
}  // namespace hardening
