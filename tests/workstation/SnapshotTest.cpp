#include "workstation/Snapshot.h"

#include <gmock/gmock.h>

#include <fstream>

#include "tests/workstation/RootTest.h"
#include "workstation/Difference.h"
#include "workstation/TemporaryVolume.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::Field;

class SnapshotTest : public RootTest {};

TEST_F(SnapshotTest, HoldsWhatIsThereAndNothingOfTheRecords) {
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .damage = {{"fifo", "/Library/Caches/pipe"}}});
  const auto entries = takeSnapshot(sample).entries;
  EXPECT_EQ(entries.at("/etc").type, 'l');
  EXPECT_EQ(entries.at("/etc").target, "private/etc");
  EXPECT_EQ(entries.at("/Library/Caches/pipe").type, 'p');
  EXPECT_EQ(entries.at("/Users/alice").user, 501U);
  EXPECT_EQ(entries.at("/Users/alice/Documents/Cut list.txt").size, 16U);
  EXPECT_EQ(entries.count("/private/var/db/workstation"), 0U);
}

TEST_F(SnapshotTest, ReadsBackAsItWasSaved) {
  const TemporaryVolume sample({.compressors = {{"4.0.7", "", true}}});
  std::ofstream(sample.volume().host("/Users/alice/a\tname\nwith \\ all\xff")) << "x";
  const auto snapshot = takeSnapshot(sample);
  const auto file = sample.volume().host("/private/var/db/workstation/snapshot");
  saveSnapshot(snapshot, file);
  const auto loaded = loadSnapshot(file);
  EXPECT_THAT(loaded.entries, ::testing::ContainerEq(snapshot.entries));
  EXPECT_EQ(loaded.values, snapshot.values);
  EXPECT_EQ(loaded.residents, snapshot.residents);
}

TEST_F(SnapshotTest, AnotherFileIsRefused) {
  const TemporaryVolume sample({});
  EXPECT_THROW((void)loadSnapshot(sample.volume().host("/etc/passwd")), std::invalid_argument);
  EXPECT_THROW((void)loadSnapshot("/no/such/file"), std::system_error);
}

TEST_F(SnapshotTest, ARenameKeepsAThingsIdentityAndACopyDoesNot) {
  const TemporaryVolume sample({});
  const auto list = sample.volume().host("/Users/alice/Documents/Cut list.txt");
  const auto before = takeSnapshot(sample);
  fs::copy_file(list, sample.volume().host("/Users/alice/.Trash/copy"));
  fs::rename(list, sample.volume().host("/Users/alice/.Trash/renamed"));
  const auto difference = compare(before, takeSnapshot(sample));
  ASSERT_EQ(difference.moved.size(), 1U);
  EXPECT_EQ(difference.moved[0].to, "/Users/alice/.Trash/renamed");
  EXPECT_THAT(difference.created, ElementsAre(Field(&Presence::path, "/Users/alice/.Trash/copy")));
}

}  // namespace
}  // namespace workstation
