#include "platform/posix/ExclusiveRename.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tests/helpers/TestVolume.h"

namespace platform {
namespace {

using helpers::Surroundings;
using helpers::TestVolume;

class ExclusiveRenameTest : public ::testing::TestWithParam<RenameFlags> {
 protected:
  int move(const std::string& from, const std::string& to) {
    const Surroundings surroundings = volume_.surroundings();
    const int root = surroundings.root.get();
    const auto moved = renameWithoutReplacing(root, from, root, to, from, GetParam());
    return moved ? 0 : moved.error().code;
  }
  TestVolume volume_;
};

TEST_P(ExclusiveRenameTest, MovesFilesFoldersLinksAndFifos) {
  volume_.makeFile("file");
  volume_.makeFile("folder/inside");
  volume_.makeLink("nowhere", "link");
  ASSERT_EQ(mkfifo(volume_.path("fifo").c_str(), 0600), 0);
  for (const char* name : {"file", "folder", "link", "fifo"}) {
    EXPECT_EQ(move(name, std::string("moved-") + name), 0) << name;
    EXPECT_FALSE(volume_.exists(name)) << name;
    EXPECT_TRUE(volume_.exists(std::string("moved-") + name)) << name;
  }
  EXPECT_TRUE(volume_.exists("moved-folder/inside"));
  EXPECT_TRUE(S_ISLNK(volume_.status("moved-link").st_mode));
}

TEST_P(ExclusiveRenameTest, NothingIsReplaced) {
  volume_.makeFile("file", "new");
  volume_.makeFolder("folder");
  volume_.makeFile("takenFile", "old");
  volume_.makeFolder("takenFolder");
  for (const char* from : {"file", "folder"}) {
    for (const char* to : {"takenFile", "takenFolder"}) EXPECT_EQ(move(from, to), EEXIST) << from << to;
  }
  EXPECT_EQ(volume_.read("takenFile"), "old");
  EXPECT_EQ(volume_.read("file"), "new");
}

TEST_P(ExclusiveRenameTest, AFailedMoveLeavesNothingBehind) {
  volume_.makeFolder("folder/below");
  EXPECT_EQ(move("missing", "target"), ENOENT);
  EXPECT_EQ(move("folder", "folder/below/itself"), EINVAL);
  EXPECT_FALSE(volume_.exists("target"));
  EXPECT_EQ(volume_.names("folder/below"), std::vector<std::string>());
}

TEST_P(ExclusiveRenameTest, OtherVolumesAreToldApart) {
  QUILLMEND_NEEDS_ROOT();
  volume_.mountVolume("disk");
  volume_.makeFile("file");
  volume_.makeFolder("folder");
  EXPECT_EQ(move("file", "disk/file"), EXDEV);
  EXPECT_EQ(move("folder", "disk/folder"), EXDEV);
  EXPECT_EQ(volume_.names("disk"), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutFlags, ExclusiveRenameTest,
                         ::testing::Values(RenameFlags::use, RenameFlags::avoid));

}  // namespace
}  // namespace platform
