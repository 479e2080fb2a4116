// What the work costs in descriptors and memory, on trees that somebody made as deep, as wide and as linked
// as can be.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <climits>
#include <cstdlib>
#include <filesystem>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/hardening/AttackedComputer.h"

namespace hardening {
namespace {

using platform::UniqueDescriptor;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr long kProgram = 4L << 10;  // KiB, with nothing to do
constexpr int kLevels = 10'000;

/// 100,000, or what QUILLMEND_HARDENING_ENTRIES says; see README.md.
int manyEntries() {
  const char* wanted = std::getenv("QUILLMEND_HARDENING_ENTRIES");
  return wanted == nullptr ? 100'000 : std::atoi(wanted);
}

void limitDescriptors() {
  const rlimit both{32, 32};
  if (::setrlimit(RLIMIT_NOFILE, &both) != 0) ::_exit(124);
}

/// Deeper than any path: one folder after the other.
void makeDeep(const std::string& top, int levels) {
  UniqueDescriptor folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY));
  for (int level = 0; level < levels; ++level) {
    if (::mkdirat(folder.get(), "d", 0700) != 0) throw std::runtime_error("cannot make a folder");
    folder.reset(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY));
  }
  UniqueDescriptor(::openat(folder.get(), "deepest", O_CREAT | O_WRONLY, 0600)).reset();
}

bool isChanged(const Form& form, const struct stat& status) {
  if (form.name == "ChownTree") return status.st_uid == 4300 && status.st_gid == 4300;
  if (form.name == "ChangeOwner") return status.st_uid == 4300;
  return (status.st_mode & 0777U) == 0777U;
}

/// Goes down to where makeDeep() has made its file, and answers what that is.
template <typename Visit>
struct stat goDown(const std::string& top, const Visit& visit) {
  struct stat status {};
  UniqueDescriptor folder(::open(top.c_str(), O_PATH | O_DIRECTORY));
  while (true) {
    UniqueDescriptor next(::openat(folder.get(), "d", O_PATH | O_DIRECTORY));
    if (!next) break;
    EXPECT_EQ(::fstat(next.get(), &status), 0);
    visit(status);
    folder = std::move(next);
  }
  EXPECT_EQ(::fstatat(folder.get(), "deepest", &status, 0), 0);
  return status;
}

int levelsBelow(const std::string& top) {
  int levels = 0;
  goDown(top, [&levels](const struct stat&) { ++levels; });
  return levels;
}

/// What a form has changed of folders that lie in each other.
struct Changes {
  int folders = 0;
  bool isDeepestFile = false;
};

Changes changesBelow(const std::string& top, const Form& form) {
  Changes changes;
  const auto count = [&](const struct stat& folder) { changes.folders += isChanged(form, folder) ? 1 : 0; };
  changes.isDeepestFile = isChanged(form, goDown(top, count));
  return changes;
}

/// 32 MiB for a million; in KiB.
long allowedFor(long entries) {
  return kProgram + entries * (26L << 10) / 1'000'000;
}

class LimitsTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// Runs a form and answers the most memory that it had, in KiB.
  long memoryOf(const Form& form, int exitStatus = 0) {
    long most = -1;
    const auto note = [&most](const Call& call) {
      if (call.number != SYS_exit_group) return kProceed;
      const std::string status = processFile(call.process, "status");
      const std::size_t line = status.find("VmHWM:");
      if (line != std::string::npos) most = std::atol(status.c_str() + line + 6);
      return kProceed;
    };
    const Finished finished = computer_.run(form.command, note, nullptr, {SYS_close_range, SYS_exit_group});
    EXPECT_EQ(finished.exitStatus, exitStatus) << finished.errors.substr(0, 500);
    EXPECT_GT(most, 0) << "its end was not seen";
    return most;
  }

  AttackedComputer computer_;
};

using LevelsTest = LimitsTest;

TEST_P(LevelsTest, AreWorkedThroughToTheDeepestWithFewDescriptorsAndLittleMemory) {
  makeDeep(computer_.path(GetParam().tree), kLevels);
  const Finished finished = computer_.run(GetParam().command, nullptr, limitDescriptors);
  EXPECT_EQ(finished.exitStatus, 1) << finished.errors.substr(0, 500);
  EXPECT_THAT(finished.errors, HasSubstr("removed or exchanged"))
      << "its path is longer than the kernel tells";
  const Changes changes = changesBelow(computer_.path(GetParam().tree), GetParam());
  EXPECT_EQ(changes.folders, kLevels);
  EXPECT_FALSE(changes.isDeepestFile) << "whether that is its only name cannot be known";
}

/// Up to where paths have a name.
TEST_P(LevelsTest, ThatHaveAPathAreAllChangedWithFewDescriptors) {
  constexpr int kNamed = 1'900;
  makeDeep(computer_.path(GetParam().tree), kNamed);
  const Finished finished = computer_.run(GetParam().command, nullptr, limitDescriptors);
  EXPECT_EQ(finished.exitStatus, 0) << finished.errors.substr(0, 500);
  const Changes changes = changesBelow(computer_.path(GetParam().tree), GetParam());
  EXPECT_EQ(changes.folders, kNamed);
  EXPECT_TRUE(changes.isDeepestFile);
}

TEST_P(LevelsTest, TakeLittleMemory) {
  makeDeep(computer_.path(GetParam().tree), kLevels);
  EXPECT_LT(memoryOf(GetParam(), 1), 32L << 10);
}

std::vector<Form> formsForTrees() {
  std::vector<Form> forms = allForms();
  std::erase_if(forms, [](const Form& form) { return form.name != "ChownTree" && form.name != "ChmodTree"; });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, LevelsTest, ::testing::ValuesIn(formsForTrees()), nameOfForm);

/// What is changed, removed, copied or moved.
const std::string& sourceOf(const Form& form) {
  return form.isVerb() ? form.source() : form.tree;
}

/// Removed or moved whole at any depth; what would have to be copied is refused beyond 256 levels.
class DeepTest : public LimitsTest {
 protected:
  static bool removes() { return GetParam().runs("rm"); }
  static bool refuses() { return GetParam().runs("cp") || GetParam().name.ends_with("ByCopy"); }

  void SetUp() override {
    LimitsTest::SetUp();
    if (!IsSkipped()) makeDeep(computer_.path(sourceOf(GetParam())), kLevels);
  }

  /// What lies in each other is, once and whole, where it was or where it was moved to; of a copy nothing.
  void expectNoLoss() const {
    std::vector<std::string> tops;
    auto entry = std::filesystem::recursive_directory_iterator(computer_.path("/Users/alice"));
    for (; entry != end(entry); ++entry) {
      const std::string name = entry->path().filename();
      EXPECT_FALSE(name.starts_with(".copying-")) << entry->path();
      if (name != "d") continue;
      entry.disable_recursion_pending();
      tops.push_back(entry->path().parent_path());
    }
    ASSERT_EQ(tops.size(), removes() ? 0U : 1U) << ::testing::PrintToString(tops);
    if (removes()) return;
    EXPECT_EQ(levelsBelow(tops.front()), kLevels);
    EXPECT_EQ(tops.front() == computer_.path(sourceOf(GetParam())), refuses()) << tops.front();
  }
};

TEST_P(DeepTest, IsDoneOrRefusedWithoutLossWithFewDescriptors) {
  const Finished finished = computer_.run(GetParam().command, nullptr, limitDescriptors);
  EXPECT_EQ(finished.exitStatus, refuses() ? 1 : 0) << finished.errors.substr(0, 500);
  expectNoLoss();
  EXPECT_EQ(finished.errors.find("Too many open files") != std::string::npos, refuses()) << finished.errors;
}

TEST_P(DeepTest, IsDoneOrRefusedWithoutLossWithManyDescriptors) {
  EXPECT_LT(memoryOf(GetParam(), refuses() ? 1 : 0), 32L << 10);
  expectNoLoss();
}

std::vector<Form> formsThatTake() {
  std::vector<Form> forms = trashForms();
  for (const Form& form : verbForms()) {
    const bool isOfTrees = form.name != "RemoveFolder" && form.name != "MoveOntoAFile";
    if ((form.runs("rm") || form.runs("mv") || form.runs("cp")) && isOfTrees && form.name != "CopyOnto")
      forms.push_back(form);
  }
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, DeepTest, ::testing::ValuesIn(formsThatTake()), nameOfForm);

using TakenLevelsTest = LimitsTest;

/// As deep as it goes, from a caller that grants little of all.
TEST_P(TakenLevelsTest, AreDoneFromASmallStackAndFewDescriptors) {
  constexpr int kTaken = 250;
  makeDeep(computer_.path(sourceOf(GetParam())), kTaken);
  const auto grantLittle = [] {
    rlimit stack{};
    rlimit descriptors{};
    ::getrlimit(RLIMIT_STACK, &stack);
    ::getrlimit(RLIMIT_NOFILE, &descriptors);
    stack.rlim_cur = 256UL << 10U;
    descriptors.rlim_cur = 32;
    if (::setrlimit(RLIMIT_STACK, &stack) != 0 || ::setrlimit(RLIMIT_NOFILE, &descriptors) != 0) ::_exit(124);
  };
  const Finished finished = computer_.run(GetParam().command, nullptr, grantLittle);
  EXPECT_EQ(finished.exitStatus, 0) << finished.errors.substr(0, 500);
}

std::vector<Form> formsThatTakeOrGive() {
  std::vector<Form> forms = formsThatTake();
  for (const Form& form : verbForms()) {
    if (form.name == "ChangeOwner") forms.push_back(form);
  }
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, TakenLevelsTest, ::testing::ValuesIn(formsThatTakeOrGive()), nameOfForm);

/// chown gives away 256 levels.
class GivenLevelsTest : public LimitsTest {
 protected:
  void SetUp() override {
    LimitsTest::SetUp();
    if (!IsSkipped()) makeDeep(computer_.path(GetParam().tree), kLevels);
  }

  void expectGiven(int most, int least) const {
    const Changes changes = changesBelow(computer_.path(GetParam().tree), GetParam());
    EXPECT_LE(changes.folders, most);
    EXPECT_GE(changes.folders, least);
    EXPECT_FALSE(changes.isDeepestFile);
    struct stat file {};
    ASSERT_EQ(::stat(computer_.path(GetParam().tree + "/file").c_str(), &file), 0);
    EXPECT_TRUE(isChanged(GetParam(), file)) << "the rest is done";
  }
};

TEST_P(GivenLevelsTest, AreTheUppermostAndTheRestStays) {
  EXPECT_LT(memoryOf(GetParam(), 1), 32L << 10);
  expectGiven(256, 256);
}

TEST_P(GivenLevelsTest, AreThoseThatTheDescriptorsAreEnoughForAndTheRestStays) {
  const Finished finished = computer_.run(GetParam().command, nullptr, limitDescriptors);
  EXPECT_EQ(finished.exitStatus, 1) << finished.errors.substr(0, 500);
  EXPECT_THAT(finished.errors, HasSubstr("Too many open files"));
  expectGiven(32, 16);
}

std::vector<Form> formsThatGive() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return !form.runs("chown"); });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, GivenLevelsTest, ::testing::ValuesIn(formsThatGive()), nameOfForm);

/// A copy goes down two trees where both have the same folders.
class TwoDeepTreesTest : public LimitsTest {
 protected:
  void SetUp() override {
    LimitsTest::SetUp();
    if (IsSkipped()) return;
    makeDeep(source_, kLevels);
    makeDeep(target_, kLevels);
  }

  void expectNeitherIsLess() const {
    EXPECT_EQ(levelsBelow(source_), kLevels);
    EXPECT_EQ(levelsBelow(target_), kLevels);
  }

  const std::string source_ = computer_.path("/Users/alice/media/tree");
  const std::string target_ = computer_.path("/Users/alice/jobs/tree");
};

TEST_P(TwoDeepTreesTest, AreNotJoinedAndNothingIsLostWithFewDescriptors) {
  const Finished finished = computer_.run(GetParam().command, nullptr, limitDescriptors);
  EXPECT_EQ(finished.exitStatus, 1) << finished.errors.substr(0, 500);
  EXPECT_THAT(finished.errors, HasSubstr("Too many open files"));
  expectNeitherIsLess();
}

TEST_P(TwoDeepTreesTest, AreNotJoinedAndNothingIsLostWithManyDescriptors) {
  EXPECT_LT(memoryOf(GetParam(), 1), 32L << 10);
  expectNeitherIsLess();
}

std::vector<Form> formsThatAdd() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return form.name != "CopyFromOnto"; });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, TwoDeepTreesTest, ::testing::ValuesIn(formsThatAdd()), nameOfForm);

using EntriesTest = LimitsTest;

void makeMany(const std::string& place, int entries) {
  const UniqueDescriptor folder(::open(place.c_str(), O_RDONLY | O_DIRECTORY));
  for (int i = 0; i < entries; ++i) {
    const std::string name = "segment-" + std::to_string(i) + ".data";
    UniqueDescriptor(::openat(folder.get(), name.c_str(), O_CREAT | O_WRONLY, 0600)).reset();
  }
}

/// What is added to a folder, or moved entry by entry, grows in a folder of its own: that takes its time.
int entriesFor(const Form& form) {
  const bool isOneByOne = form.name == "CopyFromOnto" || form.name == "TrashContentsByCopy";
  return isOneByOne ? manyEntries() / 10 : manyEntries();
}

TEST_P(EntriesTest, OfOneFolderTakeLittleMemory) {
  const Form& form = GetParam();
  makeMany(computer_.path(sourceOf(form)), entriesFor(form));
  const long memory = memoryOf(GetParam());
  std::printf("%ld KiB\n", memory);
  EXPECT_LT(memory, allowedFor(entriesFor(form)));
}

INSTANTIATE_TEST_SUITE_P(Forms, EntriesTest, ::testing::ValuesIn(allForms()), nameOfForm);

std::vector<Form> verbsForFolders() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) {
    return form.name != "Remove" && form.name != "CopyInto" && form.name != "CopyFromOnto" &&
           form.name != "MoveByCopy" && form.name != "ChangeOwner";
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Verbs, EntriesTest, ::testing::ValuesIn(verbsForFolders()), nameOfForm);

using LinksTest = LimitsTest;

TEST_P(LinksTest, OfManyFilesTakeLittleMemoryAndFewDescriptors) {
  const std::string tree = computer_.path(GetParam().tree);
  makeMany(tree, manyEntries() / 2);
  ::mkdir((tree + "/again").c_str(), 0755);
  for (int i = 0; i < manyEntries() / 2; ++i) {
    const std::string name = "/segment-" + std::to_string(i) + ".data";
    ASSERT_EQ(::link((tree + name).c_str(), (tree + "/again" + name).c_str()), 0);
  }
  EXPECT_LT(memoryOf(GetParam(), 1), allowedFor(manyEntries()));
}

INSTANTIATE_TEST_SUITE_P(Forms, LinksTest, ::testing::ValuesIn(formsForTrees()), nameOfForm);
INSTANTIATE_TEST_SUITE_P(Verbs, LinksTest, ::testing::ValuesIn(formsThatGive()), nameOfForm);

/// Folders in each other with names as long as can be; answers the last.
UniqueDescriptor makeLongWay(const std::string& top, int levels) {
  const std::string name(NAME_MAX, 'd');
  UniqueDescriptor folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY));
  for (int level = 0; level < levels; ++level) {
    EXPECT_EQ(::mkdirat(folder.get(), name.c_str(), 0700), 0);
    folder.reset(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
  }
  return folder;
}

using CopiedLinksTest = LimitsTest;

/// The way to each would be 50,000 bytes.
TEST_P(CopiedLinksTest, OfFilesInTheDepthWhoseOtherNamesAreElsewhereTakeLittleMemory) {
  constexpr int kFiles = 5'000;
  const std::string source = computer_.path(sourceOf(GetParam()));
  const std::string elsewhere = std::filesystem::path(source).parent_path() / "elsewhere/";
  ASSERT_EQ(::mkdir(elsewhere.c_str(), 0755), 0);
  const UniqueDescriptor deepest = makeLongWay(source, 200);
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "segment-" + std::to_string(i) + ".data";
    UniqueDescriptor(::openat(deepest.get(), name.c_str(), O_CREAT | O_WRONLY, 0600)).reset();
    ASSERT_EQ(::linkat(deepest.get(), name.c_str(), AT_FDCWD, (elsewhere + name).c_str(), 0), 0) << errno;
  }
  EXPECT_LT(memoryOf(GetParam()), 12L << 10);
}

std::vector<Form> formsThatCopy() {
  std::vector<Form> forms = formsThatTake();
  std::erase_if(forms, [](const Form& form) { return !form.runs("cp") && !form.name.ends_with("ByCopy"); });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, CopiedLinksTest, ::testing::ValuesIn(formsThatCopy()), nameOfForm);

}  // namespace
}  // namespace hardening
