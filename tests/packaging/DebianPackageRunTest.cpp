#include <gmock/gmock.h>

#include "tests/packaging/DebianPackage.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/workstation/RootTest.h"
#include "workstation/Difference.h"
#include "workstation/Records.h"
#include "workstation/TemporaryVolume.h"
#include "workstation/Visit.h"

// The program of the Debian package at work.

namespace packaging {
namespace {

using namespace workstation;
using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class DebianPackageRunTest : public RootTest {};

/// As the unit does: with next to nothing in the environment, through the link on the PATH. Inside a volume
/// what is the host's in /usr stays there.
TEST_F(DebianPackageRunTest, RepairsWithTheHelpersOfItsOwn) {
  const support::TemporaryFolder folder;
  folder.makeAccessibleToAll();
  ofDebianPackage("--extract", folder / "root");
  const TemporaryVolume sample({.compressors = {{"3.5.3"}}, .logFolder = true});
  const auto before = takeSnapshot(sample);
  VisitOptions options;
  options.readOnly = {{folder / "root/usr", "/usr/local"}};
  options.notifications = NotificationAnswer::expire;
  const auto run = visit(sample, {"/usr/bin/env", "-i", "/usr/local/bin/Quillmend", "-repair"}, options);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output + run.error, HasSubstr("Processing complete"));
  EXPECT_THAT(compare(before, takeSnapshot(sample)).moved,
              Contains(Field(&Move::to, StartsWith("/Users/alice/.Trash/"))));
}

}  // namespace
}  // namespace packaging
