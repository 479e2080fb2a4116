// A user exchanges what lies on the way of a tool of root's, at each of its system calls in turn.
#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <algorithm>
#include <filesystem>

#include "tests/hardening/AttackedComputer.h"
#include "tests/hardening/Swap.h"

namespace hardening {
namespace {

namespace fs = std::filesystem;

std::vector<Target> targetsOf(const Form& form) {
  const std::string outside = "/outside/alice/jobs/tree";
  const fs::path tree = form.tree;
  std::vector<Target> targets = {{"/Users", "alice", "/outside/alice"},
                                 {tree, "sub", outside + "/sub"},
                                 {tree, "file", outside + "/file"},
                                 {tree / "sub", "inner", outside + "/sub/inner"}};
  const bool isVolume = tree == "/Users/alice/disk";
  if (!isVolume) targets.push_back({tree.parent_path(), tree.filename(), outside});
  if (tree == "/Users/alice/jobs/tree") targets.push_back({"/Users/alice", "jobs", "/outside/alice/jobs"});
  if (form.name == "MakeFolders") targets.push_back({tree / "sub", "new", outside + "/sub"});
  if (!form.usesTrash()) return targets;
  const std::string trash = isVolume ? tree / ".Trashes" / "4201" : fs::path("/Users/alice/.Trash");
  targets.push_back({fs::path(trash).parent_path(), fs::path(trash).filename(), "/outside/trash"});
  targets.push_back({trash, "*", outside});
  if (isVolume) targets.push_back({tree, ".Trashes", "/outside/trash"});
  if (form.name.starts_with("TrashSpool")) {
    targets.push_back({tree.parent_path(), "." + tree.filename().string() + ".emptying", outside});
  }
  return targets;
}

/// Whether something was read there for alice.
bool hasContentFromOutside(const AttackedComputer& computer) {
  const Snapshot files = computer.files();
  return std::any_of(files.begin(), files.end(),
                     [](const auto& file) { return file.first.starts_with("the content of /outside"); });
}

class SwapTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// Answers whether there was such a call.
  static bool swapAt(const AttackedComputer& computer, const Target& target, Stays stays, int call) {
    computer.restore();
    const Snapshot before = computer.outside();
    Swap swap(computer, target);
    int calls = 0;
    const Finished finished = computer.run(GetParam().command, [&](const Call& now) {
      // The first look at a file is where the way to the tree begins.
      if ((calls == 0 && now.number != SYS_statx) || !resolvesNames(now.number)) return kProceed;
      if (++calls == call) swap.make();
      if (calls == call + 1 && stays == Stays::no) swap.undo();
      return kProceed;
    });
    SCOPED_TRACE(target.folder + "/" + target.name + " at call " + std::to_string(call));
    EXPECT_THAT(finished.exitStatus, ::testing::AnyOf(0, 1, 77)) << finished.errors;
    EXPECT_THAT(differences(before, computer.outside()), ::testing::IsEmpty()) << finished.errors;
    EXPECT_FALSE(hasContentFromOutside(computer)) << finished.errors;
    EXPECT_THAT(computer.mixedFiles(), ::testing::IsEmpty()) << finished.errors;
    return calls >= call;
  }

  static void swapAtEach(Stays stays) {
    const AttackedComputer computer;
    int runs = 0;
    for (const Target& target : targetsOf(GetParam())) {
      for (int call = 1; swapAt(computer, target, stays, call) && !HasFailure(); ++call) ++runs;
    }
    RecordProperty("runs", runs);
    EXPECT_GT(runs, 50);
  }
};

TEST_P(SwapTest, WhatIsExchangedForALinkLeadsNowhere) {
  swapAtEach(Stays::yes);
}

TEST_P(SwapTest, WhatIsExchangedForALinkDuringOneCallLeadsNowhere) {
  swapAtEach(Stays::no);
}

INSTANTIATE_TEST_SUITE_P(Forms, SwapTest, ::testing::ValuesIn(allForms()), nameOfForm);
INSTANTIATE_TEST_SUITE_P(Verbs, SwapTest, ::testing::ValuesIn(verbForms()), nameOfForm);

}  // namespace
}  // namespace hardening
