// A user changes the tree in every other way while a tool of root's is at it, at each of its system calls in
// turn.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "tests/hardening/AttackedComputer.h"

namespace hardening {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::IsEmpty;

struct Meddling {
  const char* name;
  void (*with)(const std::string& tree);
};

void replace(const std::string& path, mode_t type) {
  const std::string other = path + ".other";
  if (::mknod(other.c_str(), type | 0600, S_ISCHR(type) ? makedev(9, 0) : 0) != 0) return;
  if (::rename(other.c_str(), path.c_str()) != 0) ::unlink(other.c_str());
}

const Meddling kMeddlings[] = {
    {"a file vanishes", [](const std::string& tree) { ::unlink((tree + "/sub/inner").c_str()); }},
    {"a folder vanishes",
     [](const std::string& tree) {
       std::error_code ignored;
       fs::remove_all(tree + "/sub", ignored);
     }},
    {"all vanishes",
     [](const std::string& tree) {
       std::error_code ignored;
       fs::remove_all(tree, ignored);
     }},
    {"a folder loses its rights", [](const std::string& tree) { ::chmod((tree + "/sub").c_str(), 0); }},
    {"a folder moves away",
     [](const std::string& tree) { ::rename((tree + "/sub").c_str(), (tree + "-away").c_str()); }},
    {"a file becomes a FIFO", [](const std::string& tree) { replace(tree + "/file", S_IFIFO); }},
    {"a file becomes a socket", [](const std::string& tree) { replace(tree + "/file", S_IFSOCK); }},
    {"a file becomes a device", [](const std::string& tree) { replace(tree + "/file", S_IFCHR); }},
    {"a file becomes a folder",
     [](const std::string& tree) {
       ::unlink((tree + "/file").c_str());
       ::mkdir((tree + "/file").c_str(), 0700);
     }},
    {"a file becomes set-user-ID", [](const std::string& tree) { ::chmod((tree + "/file").c_str(), 04755); }},
    {"a file grows", [](const std::string& tree) { ::truncate((tree + "/file").c_str(), 100'000); }},
};

class MeddlingTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }
};

TEST_P(MeddlingTest, AtAnyCallDoesNoHarmAndEndsWithAnAnswer) {
  const AttackedComputer computer;
  const Snapshot outside = computer.outside();
  for (const Meddling& meddling : kMeddlings) {
    int calls = 0;
    // Until a run has no such call: one that is meddled with makes fewer than the next may.
    for (int call = 1; call <= calls + 1 && !HasFailure(); ++call) {
      SCOPED_TRACE(std::string(meddling.name) + " at call " + std::to_string(call));
      computer.restore();
      calls = 0;
      const Finished finished = computer.run(GetParam().command, [&](const Call& now) {
        if ((calls == 0 && now.number != SYS_statx) || !resolvesNames(now.number)) return kProceed;
        if (++calls == call) meddling.with(computer.path(GetParam().tree));
        return kProceed;
      });
      EXPECT_THAT(finished.exitStatus, AnyOf(0, 1)) << finished.errors;
      EXPECT_THAT(differences(outside, computer.outside()), IsEmpty());
    }
  }
}

/// Of the verbs one form for each way of working.
std::vector<Form> verbsInTheirWays() {
  constexpr std::array kNames = {"RemoveFolder", "MakeFolders", "MoveInto",   "MoveByCopy",
                                 "CopyInto",     "CopyOnto",    "ChangeOwner"};
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [&](const Form& form) {
    return std::find(kNames.begin(), kNames.end(), form.name) == kNames.end();
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, MeddlingTest, ::testing::ValuesIn(allForms()), nameOfForm);
INSTANTIATE_TEST_SUITE_P(Verbs, MeddlingTest, ::testing::ValuesIn(verbsInTheirWays()), nameOfForm);

class SecondNameTest : public MeddlingTest {
 protected:
  static constexpr int kPatience = 14;  // more calls than a tool makes for one file

  /// In place of the file comes a second name of root's, which is taken away a little later: a file whose
  /// last other name has gone looks like any other.
  static int giveAndTake(const AttackedComputer& computer, int give, int take) {
    computer.restore();
    const std::string file = computer.path(GetParam().tree + "/file");
    const std::string second = computer.path("/Users/alice/second");
    EXPECT_EQ(::link(computer.path("/outside/secret").c_str(), second.c_str()), 0);
    const Finished finished = computer.run(GetParam().command, [&](const Call& now) {
      if (now.index == give) {
        static_cast<void>(::renameat2(AT_FDCWD, second.c_str(), AT_FDCWD, file.c_str(), RENAME_EXCHANGE));
      }
      if (now.index == take) ::unlink(file.c_str());
      return kProceed;
    });
    EXPECT_THAT(finished.exitStatus, AnyOf(0, 1)) << finished.errors;
    return finished.calls;
  }
};

TEST_P(SecondNameTest, OfRootsFileGivenAtAnyCallAndTakenAtAnyLaterOneIsNotChanged) {
  const AttackedComputer computer;
  const std::string secret = computer.path("/outside/secret");
  const std::string before = described(secret, Changed::ignored);
  int calls = 0;
  for (int give = 1; give <= calls + 1 && !HasFailure(); ++give) {
    for (int take = give + 1; take <= give + kPatience && !HasFailure(); ++take) {
      SCOPED_TRACE("given at call " + std::to_string(give) + ", taken at " + std::to_string(take));
      calls = giveAndTake(computer, give, take);
      EXPECT_EQ(described(secret, Changed::ignored), before);
    }
  }
}

std::vector<Form> formsThatChange() {
  std::vector<Form> forms = formsOfAll();
  std::erase_if(forms, [](const Form& form) {
    return form.name.starts_with("Trash") ||
           (form.isVerb() && form.name != "CopyOnto" && form.name != "ChangeOwner");
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, SecondNameTest, ::testing::ValuesIn(formsThatChange()), nameOfForm);

/// What moves compares, and takes no set-ID bits along.
std::vector<Form> formsThatKeepOwners() {
  std::vector<Form> forms = verbForms();
  std::erase_if(forms, [](const Form& form) { return !form.runs("cp") || form.name == "CopyOnto"; });
  return forms;
}

class SecondNameOfASetIdFileTest : public MeddlingTest {
 protected:
  static constexpr int kPatience = 4;  // more names than a tool follows for one file until it reads it

  void SetUp() override {
    MeddlingTest::SetUp();
    if (IsSkipped()) return;
    const std::filesystem::path source = GetParam().source();
    file_ = computer_.path(source / "file");
    second_ = computer_.path(source.parent_path() / "second");
  }

  /// A second name of root's file comes in place of alice's, and hers comes back a little later: whoever
  /// looks at the one and reads the other makes what is neither. Answers how many calls followed names.
  int exchangeAndBack(int give, int take) {
    computer_.restore();
    makeSecondName();
    int calls = 0;
    const Finished finished = computer_.run(GetParam().command, [&](const Call& now) {
      if (!resolvesNames(now.number)) return kProceed;
      if (++calls == give || calls == take) exchange();
      return kProceed;
    });
    EXPECT_THAT(finished.exitStatus, AnyOf(0, 1)) << finished.errors;
    return calls;
  }

  AttackedComputer computer_;
  int exchanges_ = 0;

 private:
  /// Of a file on the volume that is copied from.
  void makeSecondName() const {
    std::ofstream(second_) << "the content of /outside/tool";
    ASSERT_EQ(::chmod(second_.c_str(), 04755), 0);
    ASSERT_EQ(::link(second_.c_str(), (second_ + ".roots").c_str()), 0);
  }

  void exchange() {
    if (::renameat2(AT_FDCWD, second_.c_str(), AT_FDCWD, file_.c_str(), RENAME_EXCHANGE) == 0) ++exchanges_;
  }

  std::string file_;
  std::string second_;
};

TEST_P(SecondNameOfASetIdFileTest, ThatComesAtAnyCallAndGoesAtAnyLaterOneLendsItsOwnerToNoOtherContent) {
  int calls = 0;
  int runs = 0;
  for (int give = 1; give <= calls + 1 && !HasFailure(); ++give) {
    for (int take = give + 1; take <= give + kPatience && !HasFailure(); ++take) {
      SCOPED_TRACE("at call " + std::to_string(give) + ", back at " + std::to_string(take));
      calls = exchangeAndBack(give, take);
      EXPECT_THAT(computer_.mixedFiles(), IsEmpty());
      ++runs;
    }
  }
  EXPECT_GT(2 * exchanges_, runs);
}

INSTANTIATE_TEST_SUITE_P(Forms, SecondNameOfASetIdFileTest, ::testing::ValuesIn(formsThatKeepOwners()),
                         nameOfForm);

}  // namespace
}  // namespace hardening
