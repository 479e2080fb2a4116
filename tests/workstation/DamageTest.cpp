#include "workstation/Damage.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/PathStatus.h"
#include "tests/workstation/RootTest.h"
#include "workstation/Layout.h"
#include "workstation/RecordLine.h"
#include "workstation/Records.h"
#include "workstation/TemporaryVolume.h"
#include "workstation/Visit.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string support = "/Library/Application Support/Apple Qmaster";
const std::string versionFile = "/Applications/Final Cut Studio/Compressor.app/Contents/version.plist";

class DamageTest : public RootTest {
 protected:
  const Volume& damaged(const std::string& name, const std::string& path) {
    sample_ = std::make_unique<TemporaryVolume>(Plan{.compressors = {{"3.5.3"}}, .damage = {{name, path}}});
    return sample_->volume();
  }

  struct stat statusAfter(const std::string& name, const std::string& path) {
    return support::statusAt(damaged(name, path).host(path));
  }

  mode_t modeAfter(const std::string& name, const std::string& path) {
    return statusAfter(name, path).st_mode & 07777U;
  }

  std::string contentsAfter(const std::string& name, const std::string& path) {
    return contentsOf(damaged(name, path).host(path)).value_or("nothing");
  }

 private:
  std::unique_ptr<TemporaryVolume> sample_;
};

TEST_F(DamageTest, BitsAreTakenFromTheThingItself) {
  EXPECT_EQ(modeAfter("unreadable", support), 0331U);
  EXPECT_EQ(modeAfter("unwritable", support), 0555U);
  EXPECT_EQ(modeAfter("unopenable", support), 0664U);
  EXPECT_EQ(modeAfter("no-access", support), 0U);
}

TEST_F(DamageTest, AMissingFolderIsGoneWithItsContents) {
  EXPECT_FALSE(fs::exists(damaged("missing", support).host(support)));
}

TEST_F(DamageTest, AWrongOwnerOwnsAllThatIsInside) {
  const auto& volume = damaged("wrong-owner", "/Library/Frameworks/AECore.framework");
  for (const char* path :
       {"/Library/Frameworks/AECore.framework", "/Library/Frameworks/AECore.framework/Versions/A/AECore",
        "/Library/Frameworks/AECore.framework/AECore"}) {
    const struct stat status = support::statusAt(volume.host(path));
    EXPECT_EQ(status.st_uid, 502U) << path;
    EXPECT_EQ(status.st_gid, 20U) << path;
  }
}

TEST_F(DamageTest, ALockedFileResistsRoot) {
  const auto& volume = damaged("locked", versionFile);
  EXPECT_NE(::access(volume.host(versionFile).c_str(), W_OK), 0);
  EXPECT_NE(::chmod(volume.host(versionFile).c_str(), 0777), 0);
}

TEST_F(DamageTest, ContentsAreDamagedInPlace) {
  EXPECT_EQ(contentsAfter("empty", versionFile), "");
  const auto whole = contentsOf(damaged("no-computer-name", "").host(versionFile)).value_or("");
  EXPECT_EQ(contentsAfter("truncated", versionFile), whole.substr(0, whole.size() / 2));
  EXPECT_THAT(contentsAfter("wrong-type", versionFile), HasSubstr("<array>"));
  EXPECT_THAT(contentsAfter("wrong-values", versionFile), StartsWith("bplist00"));
  const auto garbage = contentsAfter("garbage", versionFile);
  EXPECT_NE(garbage, whole);
  EXPECT_EQ(garbage.size(), whole.size());
  const auto huge = statusAfter("huge", versionFile);
  EXPECT_GT(huge.st_size, 64 << 20);
  EXPECT_LT(huge.st_blocks, 1000);
}

TEST_F(DamageTest, OtherKindsTakeTheFilesPlace) {
  EXPECT_TRUE(S_ISFIFO(statusAfter("fifo", versionFile).st_mode));
  EXPECT_TRUE(S_ISDIR(statusAfter("folder", versionFile).st_mode));
  EXPECT_TRUE(S_ISSOCK(statusAfter("socket", versionFile).st_mode));
  EXPECT_TRUE(S_ISLNK(statusAfter("dangling-link", versionFile).st_mode));
  EXPECT_TRUE(S_ISLNK(statusAfter("link-loop", versionFile).st_mode));
  std::error_code error;
  (void)fs::status(damaged("link-loop", versionFile).host(versionFile), error);
  EXPECT_EQ(error, std::errc::too_many_symbolic_link_levels);
}

TEST_F(DamageTest, AComputerWithoutANameSaysSo) {
  const auto& volume = damaged("no-computer-name", "");
  const auto result = visit(volume, {"/usr/sbin/scutil", "--get", "ComputerName"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "ComputerName: not set\n");
  EXPECT_EQ(visit(volume, {"/usr/sbin/scutil", "--get", "LocalHostName"}).status, 0);
}

TEST_F(DamageTest, AnApplicationCanIgnoreTheRequestToQuit) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}},
                                .qmasterRunning = false,
                                .damage = {{"ignores-quit", "/Applications/Compressor.app"}}});
  const auto result = visit(sample, {"/bin/sh", "-c", "kill -TERM -1; sleep 0.2"}, {.sessionBus = false});
  EXPECT_EQ(result.error, "");
  ASSERT_EQ(remainingProcesses(sample).size(), 1U);
  EXPECT_EQ(remainingProcesses(sample)[0].executable,
            "/Applications/Compressor.app/Contents/MacOS/Compressor");
  ASSERT_EQ(events(sample).size(), 1U);
  EXPECT_EQ(events(sample)[0].kind, "ignored");
}

TEST(DamageNames, AreReadWithTheirPaths) {
  EXPECT_EQ(parseDamage("missing:/a:b")->path, "/a:b");
  EXPECT_EQ(parseDamage("no-computer-name")->name, "no-computer-name");
  EXPECT_FALSE(parseDamage("missing"));
  EXPECT_FALSE(parseDamage("missing:relative"));
  EXPECT_FALSE(parseDamage("no-computer-name:/a"));
  EXPECT_FALSE(parseDamage("mislaid:/a"));
}

}  // namespace
}  // namespace workstation
