// Whatever happens while something is moved to the trash, no file is lost and the next run finishes the work.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/hardening/AttackedComputer.h"
#include "tests/support/TemporaryFolder.h"

namespace hardening {
namespace {

using ::testing::IsEmpty;

std::string trashed(const std::string& words) {
  return "in the trash: " + words.substr(sizeof "left: " - 1);
}

const std::string kFifo = "FIFO fifo";

/// The files that a form works on, each with its words while it is where it was.
Snapshot filesOf(const AttackedComputer& computer, const Form& form) {
  Snapshot files = computer.files();
  std::erase_if(files, [&](const auto& file) {
    const bool isOfForm = file.first.find(form.tree + "/") != std::string::npos || file.first == kFifo;
    return !isOfForm || file.second.starts_with("in the trash: ");
  });
  return files;
}

/// Whether words tell one file, or several, each of which is all that the original was.
bool isWhole(std::string words, const std::string& left) {
  const std::string end = " and ";
  while (!words.empty()) {
    const std::size_t length = std::min(words.find(end), words.size());
    const std::string one = words.substr(0, length);
    if (one != left && one != trashed(left)) return false;
    words.erase(0, length + end.size());
  }
  return true;
}

class TrashFaultsTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// Nothing but the form's files has changed, and each of those is there, once at least and whole.
  void expectNothingLost(const Snapshot& before, const Snapshot& mine) {
    const Snapshot now = computer_.files();
    for (const auto& [content, words] : now) {
      ASSERT_TRUE(before.contains(content)) << "half a file: " << content;
      if (mine.contains(content)) {
        EXPECT_TRUE(isWhole(words, mine.at(content))) << words;
      } else {
        EXPECT_EQ(words, before.at(content));
      }
    }
    EXPECT_EQ(now.size(), before.size()) << "a file is gone";
  }

  bool isAllTrashed(const Snapshot& mine) {
    const Snapshot now = computer_.files();
    return std::all_of(mine.begin(), mine.end(), [&](const auto& file) {
      const auto found = now.find(file.first);
      return found != now.end() && found->second.starts_with("in the trash") &&
             found->second.find("left: ") == std::string::npos;
    });
  }

  /// The tree as ever, with a link and a FIFO.
  void restore() const {
    computer_.restore();
    const std::string link = GetParam().tree + "/sub/link";
    const std::string fifo = GetParam().tree + "/sub/fifo";
    ASSERT_EQ(::symlink((GetParam().tree + "/nowhere").c_str(), computer_.path(link).c_str()), 0);
    ASSERT_EQ(::mkfifo(computer_.path(fifo).c_str(), 0640), 0);
    for (const std::string& place : {link, fifo}) computer_.own(place);
  }

  /// One run that something happens to, and one that nothing happens to. Answers how many calls the first
  /// made.
  int runTwice(const OnCall& onCall, const std::function<void()>& inChild = nullptr) {
    restore();
    const Snapshot before = computer_.files();
    const Snapshot mine = filesOf(computer_, GetParam());
    EXPECT_EQ(mine.size(), 5U);
    const Finished first = computer_.run(GetParam().command, onCall, inChild);
    expectNothingLost(before, mine);
    EXPECT_TRUE(first.exitStatus != 0 || isAllTrashed(mine)) << "claims to be done";
    const Finished second = computer_.run(GetParam().command);
    EXPECT_EQ(second.exitStatus, 0) << second.errors;
    expectNothingLost(before, mine);
    EXPECT_TRUE(isAllTrashed(mine)) << second.errors;
    return first.calls;
  }

  /// The numbers of the calls that a run makes.
  std::vector<int> calls() {
    std::vector<int> numbers;
    restore();
    const auto note = [&numbers](const Call& call) {
      numbers.push_back(call.number);
      return kProceed;
    };
    EXPECT_EQ(computer_.run(GetParam().command, note).exitStatus, 0);
    return numbers;
  }

  void failEach(int reason, bool (*concerns)(int call)) {
    const auto attempt = [this](const OnCall& onCall) { runTwice(onCall); };
    EXPECT_GT(hardening::failEach(calls(), concerns, reason, attempt), 3);
  }

  AttackedComputer computer_;
};

TEST_P(TrashFaultsTest, KilledBeforeAnyCallEveryFileIsWholeSomewhereAndTheNextRunFinishes) {
  int calls = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE("call " + std::to_string(call));
    calls = runTwice([&](const Call& now) { return now.index == call ? kKill : kProceed; });
    if (calls < call || HasFailure()) break;
  }
  EXPECT_GT(calls, 30);
}

/// A new file needs room, too.
bool needsRoom(int call) {
  return call == SYS_openat || changes(call);
}

TEST_P(TrashFaultsTest, WhicheverCallFailsForTheDiskEveryFileIsWholeSomewhereAndTheNextRunFinishes) {
  failEach(EIO, mayFail);
}

TEST_P(TrashFaultsTest, WhereverTheDiskIsFullEveryFileIsWholeSomewhereAndTheNextRunFinishes) {
  failEach(ENOSPC, needsRoom);
}

TEST_P(TrashFaultsTest, WhereverTheQuotaIsUsedUpEveryFileIsWholeSomewhereAndTheNextRunFinishes) {
  failEach(EDQUOT, needsRoom);
}

TEST_P(TrashFaultsTest, UnderLimitsThatCannotBeLiftedEveryFileIsWholeSomewhereAndTheNextRunFinishes) {
  const auto inTurn = {RLIMIT_FSIZE, RLIMIT_NOFILE};
  for (const auto what : inTurn) {
    for (rlim_t most = 3; most < 24; ++most) {
      SCOPED_TRACE("at most " + std::to_string(most));
      runTwice(nullptr, [&] {
        const rlimit both{most, most};
        if (::setrlimit(what, &both) != 0) ::_exit(124);
      });
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, TrashFaultsTest, ::testing::ValuesIn(trashForms()), nameOfForm);

class RefusedTrashTest : public TrashFaultsTest {
 protected:
  std::string trash() const { return computer_.path("/Users/alice/.Trash"); }

  void expectAllStays() {
    const Snapshot before = computer_.files();
    const Snapshot outside = computer_.outside();
    const Finished finished = computer_.run(GetParam().command);
    EXPECT_EQ(finished.exitStatus, 1) << finished.errors;
    EXPECT_THAT(differences(before, computer_.files()), IsEmpty());
    EXPECT_THAT(differences(outside, computer_.outside()), IsEmpty());
  }
};

TEST_P(RefusedTrashTest, ALinkIsNotUsedAndAllStays) {
  ::rmdir(trash().c_str());
  std::filesystem::create_directory_symlink("/outside/trash", trash());
  expectAllStays();
}

TEST_P(RefusedTrashTest, AFileIsNotUsedAndAllStays) {
  ::rmdir(trash().c_str());
  computer_.makeFile("/Users/alice/.Trash");
  expectAllStays();
}

TEST_P(RefusedTrashTest, AFolderOfSomebodyElsesIsNotUsedAndAllStays) {
  computer_.own("/Users/alice/.Trash", 4999);
  expectAllStays();
}

TEST_P(RefusedTrashTest, AFolderThatCannotBeWrittenIsNotUsedAndAllStays) {
  ASSERT_EQ(::mount(trash().c_str(), trash().c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(::mount(nullptr, trash().c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  expectAllStays();
}

/// The form for a whole volume has a trash of its own there.
std::vector<Form> formsWithTheHomesTrash() {
  std::vector<Form> forms = trashForms();
  std::erase_if(forms, [](const Form& form) { return form.name == "TrashSpoolOfVolume"; });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, RefusedTrashTest, ::testing::ValuesIn(formsWithTheHomesTrash()), nameOfForm);

using FullVolumeTest = TrashFaultsTest;

TEST_P(FullVolumeTest, TakesNothingThatMustBeCopiedAndAllStays) {
  std::ofstream(computer_.path(GetParam().tree + "/sub/large")) << std::string(4UL << 20U, 'l');
  ASSERT_EQ(::mount(nullptr, computer_.path("/").c_str(), nullptr, MS_REMOUNT, "size=2m"), 0);
  const Snapshot mine = filesOf(computer_, GetParam());
  EXPECT_EQ(computer_.run(GetParam().command).exitStatus, 1);
  const Snapshot now = computer_.files();
  EXPECT_EQ(now.size(), 10U + 1U);
  EXPECT_TRUE(now.at(std::string(4UL << 20U, 'l')).starts_with("left: "));
  for (const auto& [content, words] : mine) EXPECT_TRUE(isWhole(now.at(content), words));
  ASSERT_EQ(::mount(nullptr, computer_.path("/").c_str(), nullptr, MS_REMOUNT, "size=50%"), 0);
  EXPECT_EQ(computer_.run(GetParam().command).exitStatus, 0);
  EXPECT_TRUE(isAllTrashed(mine));
}

std::vector<Form> formsThatCopy() {
  std::vector<Form> forms = trashForms();
  std::erase_if(forms, [](const Form& form) { return !form.name.ends_with("ByCopy"); });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, FullVolumeTest, ::testing::ValuesIn(formsThatCopy()), nameOfForm);

}  // namespace
}  // namespace hardening
