// What the work costs in descriptors and memory, on trees that somebody made as deep, as wide and as linked
// as can be.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

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

/// Removed at any depth; what would have to be copied is refused beyond 256 levels.
class VerbLevelsTest : public LimitsTest {
 protected:
  void expectNoCopy() { EXPECT_TRUE(std::filesystem::is_empty(computer_.path("/Users/alice/.Trash"))); }
};

TEST_P(VerbLevelsTest, AreDoneOrRefusedWithoutLossWithFewDescriptors) {
  const std::string source = computer_.path(GetParam().source());
  makeDeep(source, kLevels);
  const Finished finished = computer_.run(GetParam().command, nullptr, limitDescriptors);
  const bool refuses = GetParam().name != "Remove" && GetParam().name != "Move";
  EXPECT_EQ(finished.exitStatus, refuses ? 1 : 0) << finished.errors.substr(0, 500);
  if (!refuses) {
    EXPECT_FALSE(std::filesystem::exists(source));
    return;
  }
  EXPECT_THAT(finished.errors, HasSubstr("Too many open files"));
  EXPECT_EQ(levelsBelow(source), kLevels);
  expectNoCopy();
}

TEST_P(VerbLevelsTest, AreDoneOrRefusedWithoutLossWithManyDescriptors) {
  const std::string source = computer_.path(GetParam().source());
  makeDeep(source, kLevels);
  const bool refuses = GetParam().name != "Remove" && GetParam().name != "Move";
  EXPECT_LT(memoryOf(GetParam(), refuses ? 1 : 0), 32L << 10);
  EXPECT_EQ(std::filesystem::exists(source), refuses);
  if (!refuses) return;
  EXPECT_EQ(levelsBelow(source), kLevels);
  expectNoCopy();
}

/// As deep as it goes, from a caller that grants little of all.
TEST_P(VerbLevelsTest, ThatAreTakenAreDoneFromASmallStackAndFewDescriptors) {
  constexpr int kTaken = 250;
  makeDeep(computer_.path(GetParam().source()), kTaken);
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

std::vector<Form> verbsForTrees() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) {
    return form.name != "Remove" && form.name != "Move" && form.name != "MoveByCopy" && form.name != "Copy";
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Verbs, VerbLevelsTest, ::testing::ValuesIn(verbsForTrees()), nameOfForm);

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
  makeMany(computer_.path(form.isVerb() ? form.source() : form.tree), entriesFor(form));
  const long memory = memoryOf(GetParam());
  std::printf("%ld KiB\n", memory);
  EXPECT_LT(memory, allowedFor(entriesFor(form)));
}

INSTANTIATE_TEST_SUITE_P(Forms, EntriesTest, ::testing::ValuesIn(allForms()), nameOfForm);

std::vector<Form> verbsForFolders() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) {
    return form.name != "Remove" && form.name != "CopyInto" && form.name != "CopyFromOnto" &&
           form.name != "MoveByCopy";
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

}  // namespace
}  // namespace hardening
