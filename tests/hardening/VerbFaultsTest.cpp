// Whatever happens while a verb of root's works, nothing is lost, what is there is whole, and the next run
// finishes the work.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>

#include "tests/hardening/AttackedComputer.h"
#include "tests/support/TemporaryFolder.h"

namespace hardening {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string wordsAt(const Snapshot& all, const std::string& path) {
  const auto found = all.find(path);
  return found == all.end() ? "" : found->second;
}

class VerbFaultsTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT_HERE();
    before_ = state();
    EXPECT_EQ(computer_.run(GetParam().command).exitStatus, 0);
    after_ = state();
    ASSERT_NE(before_, after_);
  }

  /// All of /Users, but for what grows in a folder that a killed program leaves.
  [[nodiscard]] Snapshot state() const {
    Snapshot all = computer_.homes();
    std::erase_if(all, [](const auto& entry) { return entry.first.find(".copying-") != std::string::npos; });
    return all;
  }

  [[nodiscard]] bool isSourceThere() const {
    return std::filesystem::exists(std::filesystem::symlink_status(computer_.path(GetParam().source())));
  }

  /// Every entry is what it was, or what it is when all has been done.
  void expectEachWhole(const Snapshot& now) const {
    std::set<std::string> paths;
    for (const Snapshot* all : {&before_, &after_, &now}) {
      for (const auto& entry : *all) paths.insert(entry.first);
    }
    for (const std::string& path : paths) {
      const std::string words = wordsAt(now, path);
      EXPECT_TRUE(words == wordsAt(before_, path) || words == wordsAt(after_, path)) << path << ": " << words;
    }
  }

  /// Every file that is still to be found when all has been done is to be found at any time.
  void expectNothingLost() const {
    const Snapshot now = computer_.files();
    for (const auto& [content, words] : filesAfter_) EXPECT_TRUE(now.contains(content)) << content;
  }

  /// What has been done before, the verb does a second time into the folder that is there now.
  void expectDone() const {
    Snapshot now = state();
    std::erase_if(now, [](const auto& entry) { return entry.first.find("/tree/tree") != std::string::npos; });
    EXPECT_THAT(differences(after_, now), IsEmpty());
  }

  int runTwice(const OnCall& onCall, const std::function<void()>& inChild = nullptr) {
    computer_.restore();
    const Finished first = computer_.run(GetParam().command, onCall, inChild);
    expectEachWhole(state());
    expectNothingLost();
    if (first.exitStatus == 0) expectDone();
    const bool isDone = !isSourceThere();
    const Finished second = computer_.run(GetParam().command);
    EXPECT_TRUE(second.exitStatus == 0 || (isDone && GetParam().runs("mv"))) << second.errors;
    expectDone();
    expectNothingLost();
    return first.calls;
  }

  std::vector<int> calls() {
    std::vector<int> numbers;
    computer_.restore();
    const auto note = [&numbers](const Call& call) {
      numbers.push_back(call.number);
      return kProceed;
    };
    EXPECT_EQ(computer_.run(GetParam().command, note).exitStatus, 0);
    filesAfter_ = computer_.files();
    return numbers;
  }

  void failEach(int reason, bool (*concerns)(int call)) {
    const auto attempt = [this](const OnCall& onCall) { runTwice(onCall); };
    EXPECT_GT(hardening::failEach(calls(), concerns, reason, attempt), 0);
  }

  AttackedComputer computer_;
  Snapshot before_;
  Snapshot after_;
  Snapshot filesAfter_;
};

TEST_P(VerbFaultsTest, KilledBeforeAnyCallNothingIsLostAndTheNextRunFinishes) {
  const int most = static_cast<int>(calls().size());
  EXPECT_GT(most, 5);
  for (int call = 1; call <= most && !HasFailure(); ++call) {
    SCOPED_TRACE("call " + std::to_string(call));
    runTwice([&](const Call& now) { return now.index == call ? kKill : kProceed; });
  }
}

TEST_P(VerbFaultsTest, WhicheverCallFailsForTheDiskNothingIsLostAndTheNextRunFinishes) {
  failEach(EIO, mayFail);
}

TEST_P(VerbFaultsTest, WhereverTheDiskIsFullNothingIsLostAndTheNextRunFinishes) {
  failEach(ENOSPC, changes);
}

TEST_P(VerbFaultsTest, WhereverTheQuotaIsUsedUpNothingIsLostAndTheNextRunFinishes) {
  failEach(EDQUOT, changes);
}

TEST_P(VerbFaultsTest, AskedToEndBeforeAnyCallNothingIsLostAndTheNextRunFinishes) {
  const int most = static_cast<int>(calls().size());
  for (int call = 1; call <= most && !HasFailure(); ++call) {
    SCOPED_TRACE("call " + std::to_string(call));
    runTwice([&](const Call& now) {
      if (now.index == call) ::kill(now.process, SIGTERM);
      return kProceed;
    });
  }
}

TEST_P(VerbFaultsTest, UnderLimitsThatCannotBeLiftedNothingIsLostAndTheNextRunFinishes) {
  calls();
  for (const auto what : {RLIMIT_FSIZE, RLIMIT_NOFILE}) {
    for (rlim_t most = 3; most < 24; most += 2) {
      SCOPED_TRACE("at most " + std::to_string(most));
      runTwice(nullptr, [&] {
        const rlimit both{most, most};
        if (::setrlimit(what, &both) != 0) ::_exit(124);
      });
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, VerbFaultsTest, ::testing::ValuesIn(verbForms()), nameOfForm);

INSTANTIATE_TEST_SUITE_P(Recording, VerbFaultsTest, ::testing::Values(formThatRecords()), nameOfForm);

class RecordTest : public VerbFaultsTest {};

TEST_P(RecordTest, IsWrittenAndReadAmongTheCallsThatFail) {
  const std::vector<int> recorded = calls();
  std::vector<int> plain;
  computer_.restore();
  std::vector<std::string> command = GetParam().command;
  command.front() = "/verbs/mv";
  const auto note = [&plain](const Call& call) {
    plain.push_back(call.number);
    return kProceed;
  };
  EXPECT_EQ(computer_.run(command, note).exitStatus, 0);
  const auto further = [&](int number) {
    return std::count(recorded.begin(), recorded.end(), number) -
           std::count(plain.begin(), plain.end(), number);
  };
  // Three files and a folder in the tree, and two ends, of which the last stays in memory, as the tree does.
  constexpr int kBlocks = 5;
  EXPECT_EQ(further(SYS_openat), 1);
  EXPECT_EQ(further(SYS_unlinkat), 1);
  EXPECT_EQ(further(SYS_pwrite64), kBlocks);
  EXPECT_EQ(further(SYS_pread64), 2 * kBlocks);
  EXPECT_EQ(recorded.size() - plain.size(), 2U + 3 * kBlocks);
}

INSTANTIATE_TEST_SUITE_P(Recording, RecordTest, ::testing::Values(formThatRecords()), nameOfForm);

class LooksTest : public VerbFaultsTest {};

TEST_P(LooksTest, AtAnEntryAreAmongTheCallsThatFail) {
  EXPECT_THAT(calls(), ::testing::Contains(SYS_newfstatat));
}

std::vector<Form> formsThatLook() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return form.name != "Remove"; });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, LooksTest, ::testing::ValuesIn(formsThatLook()), nameOfForm);

class EndedVerbTest : public VerbFaultsTest {};

TEST_P(EndedVerbTest, SaysSoStopsAndLeavesNothingHalf) {
  computer_.restore();
  bool isAsked = false;
  const auto ask = [&isAsked](const Call& call) {
    if (!isAsked && changes(call.number)) isAsked = ::kill(call.process, SIGTERM) == 0;
    return kProceed;
  };
  const Finished finished = computer_.run(GetParam().command, ask);
  EXPECT_EQ(finished.exitStatus, 1) << finished.signal;
  EXPECT_THAT(finished.errors, HasSubstr("Operation canceled"));
  EXPECT_THAT(differences(before_, computer_.homes()), IsEmpty());
}

std::vector<Form> formsThatTakeLong() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) {
    return form.name != "Remove" && form.name != "MoveByCopy" && form.name != "Copy" &&
           form.name != "CopyOnto";
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, EndedVerbTest, ::testing::ValuesIn(formsThatTakeLong()), nameOfForm);

/// Root's copies where a file system lets nobody change hands.
class KeptOwnerTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  AttackedComputer computer_;
};

TEST_P(KeptOwnerTest, WhereItCannotBeKeptSetIdBitsAreNot) {
  computer_.makeFile(GetParam().source() + "/tool", 06755);
  const auto refuse = [](const Call& call) {
    return call.number == SYS_fchown || call.number == SYS_fchownat ? EPERM : kProceed;
  };
  EXPECT_EQ(computer_.run(GetParam().command, refuse).exitStatus, 0);
  std::string copy = "/Users/alice/.Trash/tree/tool";
  if (GetParam().name == "CopyOnto") copy = "/Users/alice/jobs/tree/tool";
  struct stat status {};
  ASSERT_EQ(::stat(computer_.path(copy).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

std::vector<Form> formsThatCopy() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return !form.runs("cp") || form.name == "CopyFromOnto"; });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, KeptOwnerTest, ::testing::ValuesIn(formsThatCopy()), nameOfForm);

/// Asked to end before the first call of a kind: that one is made, and no other.
class EndedAfterOneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT_HERE();
    computer_.restore();
  }

  Finished runAskedAt(int number, const std::vector<std::string>& command) {
    before_ = computer_.homes();
    bool isAsked = false;
    return computer_.run(command, [&isAsked, number](const Call& call) {
      if (!isAsked && call.number == number) isAsked = ::kill(call.process, SIGTERM) == 0;
      return kProceed;
    });
  }

  /// What is there now and was not, or was something else.
  [[nodiscard]] std::vector<std::string> changed() const {
    std::vector<std::string> all = differences(before_, computer_.homes());
    std::erase_if(all, [](const std::string& line) { return !line.starts_with('+'); });
    return all;
  }

  AttackedComputer computer_;
  Snapshot before_;
};

TEST_F(EndedAfterOneTest, ChownGivesAwayNeitherTheFoldersOnTheWayOutNorWhatFollows) {
  const Finished finished = runAskedAt(
      SYS_fchownat, {"/verbs/chown", "-R", "4300:4300", "/Users/alice/jobs/tree", "/Users/alice/media/tree"});
  EXPECT_EQ(finished.exitStatus, 1) << finished.signal;
  EXPECT_THAT(finished.errors, HasSubstr("not finished: asked to stop"));
  EXPECT_THAT(changed(), ElementsAre(HasSubstr(" 4300:4300 ")));
}

TEST_F(EndedAfterOneTest, ChownLeavesAFolderWhoseLastEntryItHasJustGivenAway) {
  computer_.makeFolder("/Users/alice/only");
  computer_.makeFile("/Users/alice/only/entry");
  EXPECT_EQ(runAskedAt(SYS_fchownat, {"/verbs/chown", "-R", "4300:4300", "/Users/alice/only"}).exitStatus, 1);
  EXPECT_THAT(changed(), ElementsAre(HasSubstr("alice/only/entry ")));
}

TEST_F(EndedAfterOneTest, ChownBeginsNoFurtherArgument) {
  const Finished finished = runAskedAt(
      SYS_fchownat, {"/verbs/chown", "4300", "/Users/alice/jobs/tree/file", "/Users/alice/media/tree/file"});
  EXPECT_EQ(finished.exitStatus, 1) << finished.signal;
  EXPECT_THAT(finished.errors, HasSubstr("/Users/alice/media/tree/file"));
  EXPECT_THAT(changed(), ElementsAre(HasSubstr("alice/jobs/tree/file ")));
}

TEST_F(EndedAfterOneTest, ChownThatHasDoneAllIsDone) {
  EXPECT_EQ(runAskedAt(SYS_fchownat, {"/verbs/chown", "4300", "/Users/alice/jobs/tree/file"}).exitStatus, 0);
  EXPECT_THAT(changed(), ElementsAre(HasSubstr("alice/jobs/tree/file ")));
}

TEST_F(EndedAfterOneTest, MkdirMakesNoFolderMore) {
  const Finished finished =
      runAskedAt(SYS_mkdirat, {"/verbs/mkdir", "-p", "/Users/alice/jobs/tree/new/newer/newest"});
  EXPECT_EQ(finished.exitStatus, 1) << finished.signal;
  EXPECT_THAT(finished.errors, HasSubstr("Operation canceled"));
  EXPECT_THAT(changed(), ElementsAre(HasSubstr("alice/jobs/tree/new ")));
}

TEST_F(EndedAfterOneTest, MkdirThatHasMadeAllIsDone) {
  EXPECT_EQ(runAskedAt(SYS_mkdirat, {"/verbs/mkdir", "-p", "/Users/alice/jobs/tree/new"}).exitStatus, 0);
  EXPECT_THAT(changed(), ElementsAre(HasSubstr("alice/jobs/tree/new ")));
}

}  // namespace
}  // namespace hardening
