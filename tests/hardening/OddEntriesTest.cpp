// What stands in a tool's way in the middle of a tree stays as it is, and the rest is done.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <filesystem>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/hardening/AttackedComputer.h"

namespace hardening {
namespace {

using platform::UniqueDescriptor;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

bool makeImmutable(const std::string& path) {
  const UniqueDescriptor file(::open(path.c_str(), O_RDONLY));
  int flags = 0;
  if (::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) return false;
  flags |= FS_IMMUTABLE_FL;
  return ::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0;
}

bool isChange(const Form& form) {
  return !form.name.starts_with("Trash");
}

/// A folder that is moved whole takes along what is in it.
bool movesWhole(const Form& form) {
  return form.name == "TrashItem" || form.name == "TrashSpool";
}

/// The words of a file without where it is.
std::string wordsOf(const std::string& words) {
  return words.substr(words.find(": ") + 2);
}

class OddEntriesTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  [[nodiscard]] std::string tree(const std::string& place) const { return GetParam().tree + place; }
  static std::string contentOf(const std::string& place) { return "the content of " + place; }

  /// What an entry of that name is, wherever in alice's home it is by now.
  [[nodiscard]] std::vector<struct stat> entriesNamed(const std::string& name) const {
    std::vector<struct stat> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(computer_.path("/Users/alice"))) {
      struct stat status {};
      if (entry.path().filename() != name) continue;
      EXPECT_EQ(::lstat(entry.path().c_str(), &status), 0);
      found.push_back(status);
    }
    return found;
  }

  /// There is one, with the owner and the mode that the form gives.
  void expectDone(const std::string& name, mode_t type) const {
    const std::vector<struct stat> found = entriesNamed(name);
    ASSERT_EQ(found.size(), 1U) << name;
    EXPECT_EQ(found.front().st_mode, type | (GetParam().name == "ChmodTree" ? 0777U : 0600U)) << name;
    EXPECT_EQ(found.front().st_uid, GetParam().name == "ChownTree" ? 4300 : AttackedComputer::kAlice) << name;
  }

  /// Runs the form; a file that is in nobody's way is done.
  void run(int exitStatus, const std::string& done) {
    const Snapshot before = computer_.files();
    const Snapshot outside = computer_.outside();
    const Finished finished = computer_.run(GetParam().command);
    EXPECT_EQ(finished.exitStatus, exitStatus) << finished.errors;
    EXPECT_THAT(differences(outside, computer_.outside()), IsEmpty());
    const Snapshot now = computer_.files();
    EXPECT_EQ(now.size(), before.size());
    if (done.empty()) return;
    EXPECT_NE(now.at(contentOf(tree(done))), before.at(contentOf(tree(done))));
  }

  AttackedComputer computer_;
};

TEST_P(OddEntriesTest, AnImmutableFileStaysAsItIsAndTheRestIsDone) {
  const std::string locked = contentOf(tree("/file"));
  if (!makeImmutable(computer_.path(tree("/file"))))
    GTEST_SKIP() << "this kernel's tmpfs has no immutable files";
  const Snapshot before = computer_.files();
  run(movesWhole(GetParam()) ? 0 : 1, GetParam().name == "ChmodOne" ? "" : "/sub/inner");
  const Snapshot now = computer_.files();
  EXPECT_THAT(now.at(locked), HasSubstr(wordsOf(before.at(locked))));
  EXPECT_EQ(now.at(locked).find("left: ") == std::string::npos, movesWhole(GetParam()));
}

TEST_P(OddEntriesTest, AVolumeThatIsMountedInTheTreeKeepsItsFilesAsTheyAre) {
  if (GetParam().name == "ChmodOne") return;
  ASSERT_EQ(::mount("nested", computer_.path(tree("/sub")).c_str(), "tmpfs", 0, nullptr), 0);
  computer_.makeFile(tree("/sub/mounted"));
  const std::string mounted = contentOf(tree("/sub/mounted"));
  const Snapshot before = computer_.files();
  run(movesWhole(GetParam()) ? 0 : 1, isChange(GetParam()) ? "/file" : "");
  EXPECT_THAT(computer_.files().at(mounted), HasSubstr(wordsOf(before.at(mounted))));
}

TEST_P(OddEntriesTest, FifosSocketsAndSetIdFilesAreNeitherOpenedNorArmed) {
  constexpr std::array kOdd = {static_cast<mode_t>(S_IFIFO), static_cast<mode_t>(S_IFSOCK)};
  for (const mode_t type : kOdd) {
    const std::string place = tree("/odd" + std::to_string(type));
    ASSERT_EQ(::mknod(computer_.path(place).c_str(), type | 0600U, 0), 0);
    computer_.own(place);
  }
  computer_.makeFile(tree("/tool"), 06755);
  const Snapshot before = computer_.files();
  const bool widens = GetParam().name == "ChmodTree";  // set-ID files are not made writable: that is told
  run(widens ? 1 : 0, GetParam().name == "ChmodOne" ? "/file" : "/sub/inner");
  for (const mode_t type : kOdd) expectDone("odd" + std::to_string(type), type);
  const std::string tool = computer_.files().at(contentOf(tree("/tool")));
  if (GetParam().name == "ChownTree" || GetParam().name.ends_with("ByCopy")) {
    EXPECT_THAT(tool, HasSubstr(" 100755 ")) << "no set-ID bits for another owner or in a copy";
  } else {
    EXPECT_EQ(wordsOf(tool), wordsOf(before.at(contentOf(tree("/tool")))));
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, OddEntriesTest, ::testing::ValuesIn(allForms()), nameOfForm);

class OddEntriesOfVerbsTest : public OddEntriesTest {
 protected:
  void SetUp() override {
    OddEntriesTest::SetUp();
    if (IsSkipped() || GetParam().name != "RemoveFolder") return;
    // What the other forms find in their trees.
    computer_.makeFile(at("/file"));
    computer_.makeFolder(at("/sub"));
  }

  /// In what a verb removes, copies or moves.
  [[nodiscard]] static std::string at(const std::string& place) { return GetParam().source() + place; }
  [[nodiscard]] static bool isMovedByCopy() { return GetParam().name == "MoveByCopy"; }
  [[nodiscard]] static bool removes() { return GetParam().runs("rm"); }

  Finished runWithoutHarm() {
    const Snapshot outside = computer_.outside();
    Finished finished = computer_.run(GetParam().command);
    EXPECT_THAT(differences(outside, computer_.outside()), IsEmpty());
    return finished;
  }
};

TEST_P(OddEntriesOfVerbsTest, AVolumeThatIsMountedInTheTreeIsNeitherEmptiedNorMovedApart) {
  ASSERT_EQ(::mount("nested", computer_.path(at("/sub")).c_str(), "tmpfs", 0, nullptr), 0);
  computer_.makeFile(at("/sub/mounted"));
  const std::string mounted = contentOf(at("/sub/mounted"));
  const std::string words = wordsOf(computer_.files().at(mounted));
  EXPECT_EQ(runWithoutHarm().exitStatus, removes() || isMovedByCopy() ? 1 : 0);
  const std::string now = computer_.files().at(mounted);
  EXPECT_THAT(now, HasSubstr(words));
  EXPECT_EQ(now.find(" and ") != std::string::npos, GetParam().runs("cp")) << "a copy beside it, or none";
  EXPECT_EQ(computer_.files().contains(contentOf(at("/file"))), !removes());
}

/// A tape drive that is not there: to open it fails.
const dev_t kTape = makedev(9, 0);

TEST_P(OddEntriesOfVerbsTest, FifosSocketsAndDevicesAreNotOpened) {
  constexpr auto kOdd = std::to_array<mode_t>({S_IFIFO, S_IFSOCK, S_IFCHR});
  for (const mode_t type : kOdd) {
    const std::string place = at("/odd" + std::to_string(type));
    ASSERT_EQ(::mknod(computer_.path(place).c_str(), type | 0600U, kTape), 0);
    computer_.own(place);
  }
  const Finished finished = runWithoutHarm();
  EXPECT_EQ(finished.exitStatus, isMovedByCopy() ? 1 : 0) << finished.errors;
  for (const mode_t type : kOdd) {
    const std::vector<struct stat> found = entriesNamed("odd" + std::to_string(type));
    const std::size_t expected = removes() ? 0U : GetParam().runs("cp") ? 2U : 1U;
    EXPECT_EQ(found.size(), expected) << type;
    for (const struct stat& status : found) {
      EXPECT_EQ(status.st_mode, type | 0600U);
      EXPECT_EQ(status.st_uid, AttackedComputer::kAlice);
      EXPECT_EQ(status.st_rdev, type == S_IFCHR ? kTape : 0);
    }
  }
  if (!isMovedByCopy()) return;
  EXPECT_THAT(finished.errors, HasSubstr("a device is not copied to another volume"));
  EXPECT_TRUE(computer_.files().at(contentOf(at("/file"))).starts_with("left: ")) << "all stays";
}

TEST_P(OddEntriesOfVerbsTest, SetIdBitsComeAlongWithTheirOwnerWithinACopyAndNotToAnotherVolume) {
  computer_.makeFile(at("/tool"), 06755);
  const std::string words = wordsOf(computer_.files().at(contentOf(at("/tool"))));
  EXPECT_EQ(runWithoutHarm().exitStatus, 0);
  const Snapshot now = computer_.files();
  EXPECT_EQ(now.contains(contentOf(at("/tool"))), !removes());
  if (removes()) return;
  const std::string tool = now.at(contentOf(at("/tool")));
  EXPECT_EQ(tool.find(words) == std::string::npos, isMovedByCopy());
  EXPECT_EQ(tool.find(" 100755 ") != std::string::npos, isMovedByCopy());
}

TEST_P(OddEntriesOfVerbsTest, AnImmutableFileStaysAsItIs) {
  if (!makeImmutable(computer_.path(at("/file"))))
    GTEST_SKIP() << "this kernel's tmpfs has no immutable files";
  const std::string words = wordsOf(computer_.files().at(contentOf(at("/file"))));
  EXPECT_EQ(runWithoutHarm().exitStatus, removes() || isMovedByCopy() ? 1 : 0);
  EXPECT_THAT(computer_.files().at(contentOf(at("/file"))), HasSubstr(words));
}

std::vector<Form> verbsForTrees() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) {
    return form.runs("mkdir") || form.runs("chown") || form.name == "MoveOntoAFile";
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Verbs, OddEntriesOfVerbsTest, ::testing::ValuesIn(verbsForTrees()), nameOfForm);

/// What changes hands, and what does not.
class OddEntriesOfChownTest : public OddEntriesTest {
 protected:
  /// Runs it. The one is told and stays as it is, a file that is in nobody's way is given away.
  void expectKept(const std::string& name, const std::string& why) {
    const std::vector<struct stat> before = entriesNamed(name);
    const Snapshot outside = computer_.outside();
    const Finished finished = computer_.run(GetParam().command);
    EXPECT_EQ(finished.exitStatus, 1);
    EXPECT_THAT(finished.errors, HasSubstr("/" + name + ": " + why));
    EXPECT_THAT(differences(outside, computer_.outside()), IsEmpty());
    const std::vector<struct stat> now = entriesNamed(name);
    ASSERT_EQ(now.size(), 1U);
    EXPECT_EQ(now.front().st_ctim.tv_nsec, before.at(0).st_ctim.tv_nsec);
    EXPECT_EQ(now.front().st_ctim.tv_sec, before.at(0).st_ctim.tv_sec);
    EXPECT_EQ(ownerOf("/file"), 4300);
  }

  [[nodiscard]] int ownerOf(const std::string& place) const {
    struct stat status {};
    return ::lstat(computer_.path(tree(place)).c_str(), &status) == 0 ? static_cast<int>(status.st_uid) : -1;
  }
};

TEST_P(OddEntriesOfChownTest, FifosSocketsDevicesAndLinksStayWhoseTheyAre) {
  constexpr auto kOdd = std::to_array<mode_t>({S_IFIFO, S_IFSOCK, S_IFCHR, S_IFLNK});
  for (const mode_t type : kOdd) {
    SCOPED_TRACE(type);
    computer_.restore();
    const std::string odd = computer_.path(tree("/sub/odd"));
    const bool isMade = type == S_IFLNK ? ::symlink("inner", odd.c_str()) == 0
                                        : ::mknod(odd.c_str(), type | 0600U, kTape) == 0;
    ASSERT_TRUE(isMade);
    computer_.own(tree("/sub/odd"));
    expectKept("odd", "neither a file nor a folder");
    EXPECT_EQ(ownerOf("/sub"), 4300);
  }
}

TEST_P(OddEntriesOfChownTest, AFileWithFurtherNamesStaysWhoseItIs) {
  computer_.makeFile(tree("/sub/named"));
  ASSERT_EQ(::link(computer_.path(tree("/sub/named")).c_str(), computer_.path("/Users/alice/again").c_str()),
            0);
  expectKept("named", "has further names");
}

TEST_P(OddEntriesOfChownTest, AnImmutableFileStaysAsItIsAndTheRestIsDone) {
  computer_.makeFile(tree("/sub/locked"));
  if (!makeImmutable(computer_.path(tree("/sub/locked"))))
    GTEST_SKIP() << "this kernel's tmpfs has no immutable files";
  expectKept("locked", "Operation not permitted");
}

TEST_P(OddEntriesOfChownTest, AVolumeThatIsMountedInTheTreeKeepsItsFilesAsTheyAre) {
  computer_.makeFolder(tree("/sub/volume"));
  ASSERT_EQ(::mount("nested", computer_.path(tree("/sub/volume")).c_str(), "tmpfs", 0, nullptr), 0);
  computer_.makeFile(tree("/sub/volume/mounted"));
  expectKept("volume", "on another volume, left as it is");
  EXPECT_EQ(ownerOf("/sub/volume/mounted"), static_cast<int>(AttackedComputer::kAlice));
}

TEST_P(OddEntriesOfChownTest, ASetIdFileIsGivenAwayWithoutItsBits) {
  computer_.makeFile(tree("/tool"), 06755);
  run(0, "/sub/inner");
  EXPECT_THAT(computer_.files().at(contentOf(tree("/tool"))), HasSubstr(" 100755 4300:"));
}

std::vector<Form> verbsThatGive() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return !form.runs("chown"); });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Verbs, OddEntriesOfChownTest, ::testing::ValuesIn(verbsThatGive()), nameOfForm);

}  // namespace
}  // namespace hardening
