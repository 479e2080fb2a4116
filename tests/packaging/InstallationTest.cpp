#include "tests/packaging/Installation.h"

#include <gmock/gmock.h>

#include "tests/support/PathStatus.h"
#include "tests/support/TemporaryFolder.h"

// What `cmake --install` puts below a prefix.

namespace packaging {
namespace {

namespace fs = std::filesystem;
using support::contentOf;
using support::modeAt;
using support::runProgram;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kService = "lib/systemd/system/quillmend-repair.service";

class InstallationTest : public ::testing::Test {
 protected:
  const support::TemporaryFolder folder;
};

TEST_F(InstallationTest, EverybodyMayUseItAndNobodyElseChangeItWhateverTheMask) {
  const std::string prefix = folder / "opt";
  const mode_t mask = ::umask(077);
  const auto run = install(BUILD_FOLDER, {"--prefix", prefix});
  ::umask(mask);
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(modeAt(prefix), 0755U);
  int seen = 0;
  for (const auto& entry : fs::recursive_directory_iterator(prefix)) {
    if (entry.is_symlink()) continue;
    const auto mode = modeAt(entry.path());
    if (entry.is_directory()) {
      EXPECT_EQ(mode, 0755U) << entry.path();
    } else {
      EXPECT_THAT(mode, AnyOf(Eq(0644U), Eq(0755U))) << entry.path();
    }
    ++seen;
  }
  EXPECT_GT(seen, 30);
}

TEST_F(InstallationTest, AFolderThatIsThereKeepsItsMode) {
  const std::string bin = folder.folder("bin");
  ASSERT_EQ(::chmod(bin.c_str(), 02775), 0);
  ASSERT_EQ(install(BUILD_FOLDER, {"--prefix", folder.path()}).status, 0);
  EXPECT_EQ(modeAt(bin), 02775U);
}

/// A unit below a prefix with characters that mean something in it.
class UnitTest : public InstallationTest {
 protected:
  void SetUp() override {
    const auto run = install(BUILD_FOLDER, {"--prefix", prefix});
    ASSERT_EQ(run.status, 0) << run.output;
  }
  [[nodiscard]] support::ProgramRun verify() const {
    return runProgram({"/usr/bin/systemd-analyze", "verify", "--man=no", "--recursive-errors=no",
                       prefix + "/" + kService, prefix + "/lib/systemd/system/quillmend-repair.timer"});
  }

  const std::string prefix = folder / "odd $place 100% `tick`";
};

TEST_F(UnitTest, StartsTheProgramThatIsInstalled) {
  EXPECT_THAT(contentOf(prefix + "/" + kService),
              HasSubstr("\nExecStart=:\"" + (folder / "odd $place 100%% `tick`/bin/Quillmend\" -repair\n")));
  const auto sound = verify();
  EXPECT_EQ(sound.output, "");
  EXPECT_EQ(sound.status, 0);
  fs::remove(prefix + "/bin/Quillmend");
  const auto unsound = verify();
  EXPECT_NE(unsound.status, 0);
  EXPECT_THAT(unsound.output, HasSubstr(prefix + "/bin/Quillmend is not executable"));
}

TEST_F(UnitTest, LetsAStepEndAndWhatARepairHasStartedLive) {
  const std::string service = contentOf(prefix + "/" + kService);
  for (const char* line : {"Type=oneshot", "KillMode=process", "TimeoutStopSec=5min"}) {
    EXPECT_THAT(service, HasSubstr("\n" + std::string(line) + "\n"));
  }
  EXPECT_THAT(service, Not(HasSubstr("[Install]"))) << "the timer starts it";
}

TEST_F(UnitTest, ATimerThatNothingSwitchesOnMakesUpForARunThatWasMissed) {
  const std::string timer = contentOf(prefix + "/lib/systemd/system/quillmend-repair.timer");
  EXPECT_THAT(timer, HasSubstr("\nOnCalendar=Sun 03:30\nPersistent=true\n"));
  EXPECT_THAT(timer, HasSubstr("\nWantedBy=timers.target\n"));
  for (const std::string& file : filesBelow(prefix)) EXPECT_THAT(file, Not(HasSubstr(".wants")));
}

TEST_F(InstallationTest, WithoutAWindowThereIsAllButWhatADesktopShows) {
  const std::string build = folder / "build";
  const auto configured =
      runProgram({CMAKE_PROGRAM, "-S", SOURCE_FOLDER, "-B", build, "-G", "Ninja", "-DQUILLMEND_WINDOW=OFF",
                  "-DBUILD_TESTING=OFF", "-DCMAKE_CXX_COMPILER=" CXX_COMPILER});
  ASSERT_EQ(configured.status, 0) << configured.output;
  EXPECT_NE(install(build, {"--prefix", folder / "half"}).status, 0) << "nothing is built";
  EXPECT_FALSE(fs::exists(folder / "half"));

  folder.file("build/Quillmend.app/Contents/MacOS/Quillmend");
  const auto run = install(build, {"--prefix", folder / "whole"});
  ASSERT_EQ(run.status, 0) << run.output;
  fs::remove_all(folder / "whole/lib/Quillmend.app");
  EXPECT_THAT(filesBelow(folder / "whole"),
              ElementsAre("bin/Quillmend", kService, "lib/systemd/system/quillmend-repair.timer",
                          "share/bash-completion/completions/Quillmend", "share/man/man1/Quillmend.1"));
}

}  // namespace
}  // namespace packaging
