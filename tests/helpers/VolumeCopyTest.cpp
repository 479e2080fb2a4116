#include "helpers/VolumeCopy.h"

#include <gmock/gmock.h>
#include <sys/xattr.h>

#include "tests/helpers/TestVolume.h"

namespace helpers {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class VolumeCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    volume_.mountVolume("disk");
    surroundings_ = volume_.surroundings();
    target_.reset(open(volume_.path("disk").c_str(), O_RDONLY | O_DIRECTORY));
  }
  foundation::Result<void> copy(const std::string& name) {
    return copy_.copy(surroundings_.root.get(), name, target_.get(), "copy", "/" + name);
  }
  void remove(const std::string& name) { copy_.removeOriginals(surroundings_.root.get(), name, "/" + name); }

  TestVolume volume_;
  Surroundings surroundings_;
  platform::Descriptor target_;
  RecordedReport report_;
  VolumeCopy copy_{report_};
};

TEST_F(VolumeCopyTest, EverythingArrivesWithOwnerModeTimesAndAttributes) {
  volume_.makeFile("tree/sub/file", "text", 0640);
  volume_.own("tree/sub/file", TestVolume::kBob);
  setxattr(volume_.path("tree/sub/file").c_str(), "trusted.note", "kept", 4, 0);
  volume_.makeLink("sub/file", "tree/link");
  ASSERT_EQ(mkfifo(volume_.path("tree/fifo").c_str(), 0620), 0);
  chmod(volume_.path("tree/fifo").c_str(), 0620);
  const timespec times[2] = {{1000, 0}, {2000, 500}};
  for (const char* place : {"tree/sub/file", "tree/sub"}) {
    utimensat(AT_FDCWD, volume_.path(place).c_str(), times, 0);
  }
  ASSERT_TRUE(copy("tree"));
  EXPECT_EQ(volume_.read("disk/copy/sub/file"), "text");
  EXPECT_EQ(volume_.status("disk/copy/sub/file").st_uid, TestVolume::kBob);
  EXPECT_EQ(volume_.mode("disk/copy/sub/file"), 0640U);
  EXPECT_EQ(volume_.status("disk/copy/sub/file").st_mtim.tv_nsec, 500);
  EXPECT_EQ(volume_.status("disk/copy/sub").st_mtime, 2000);
  char note[8] = {};
  EXPECT_EQ(getxattr(volume_.path("disk/copy/sub/file").c_str(), "trusted.note", note, sizeof note), 4);
  EXPECT_EQ(std::filesystem::read_symlink(volume_.path("disk/copy/link")), "sub/file");
  EXPECT_TRUE(S_ISFIFO(volume_.status("disk/copy/fifo").st_mode));
  EXPECT_EQ(volume_.mode("disk/copy/fifo"), 0620U);
  remove("tree");
  EXPECT_FALSE(volume_.exists("tree"));
  EXPECT_EQ(report_.text(), "");
}

TEST_F(VolumeCopyTest, HolesStayHoles) {
  volume_.makeFile("sparse", "");
  ASSERT_EQ(truncate(volume_.path("sparse").c_str(), 64 << 20), 0);
  ASSERT_TRUE(copy("sparse"));
  EXPECT_EQ(volume_.status("disk/copy").st_size, 64 << 20);
  EXPECT_LT(volume_.status("disk/copy").st_blocks, 1000);
}

TEST_F(VolumeCopyTest, ATreeWithAMountInItIsNotMovedAndNoPartOfACopyStays) {
  volume_.makeFile("tree/a");
  volume_.mountVolume("tree/mounted");
  EXPECT_FALSE(copy("tree"));
  EXPECT_THAT(volume_.names("disk"), IsEmpty());
  EXPECT_TRUE(volume_.exists("tree/a"));
}

TEST_F(VolumeCopyTest, AFullVolumeLeavesTheOriginalAndNoPartOfACopy) {
  ASSERT_EQ(mount("none", volume_.path("disk").c_str(), "tmpfs", MS_REMOUNT, "size=128k"), 0);
  volume_.makeFile("tree/small");
  volume_.makeFile("tree/large", std::string(1 << 20, 'x'));
  const auto copied = copy("tree");
  ASSERT_FALSE(copied);
  EXPECT_EQ(copied.error().code, ENOSPC);
  EXPECT_THAT(volume_.names("disk"), IsEmpty());
  EXPECT_TRUE(volume_.exists("tree/small"));
}

TEST_F(VolumeCopyTest, WhatChangedOrCameAfterTheCopyIsKept) {
  volume_.makeFile("tree/same");
  volume_.makeFile("tree/changed");
  ASSERT_TRUE(copy("tree"));
  volume_.makeFile("tree/changed", "longer text");
  volume_.makeFile("tree/added");
  remove("tree");
  EXPECT_THAT(volume_.names("tree"), ElementsAre("added", "changed"));
  EXPECT_THAT(report_.text(), HasSubstr("/tree/changed: changed or added since"));
}

}  // namespace
}  // namespace helpers
