#include "platform/posix/TreeCopy.h"

#include <gmock/gmock.h>
#include <sys/fsuid.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include "helpers/TrashCan.h"
#include "tests/helpers/TestVolume.h"

namespace platform {
namespace {

using helpers::RecordedReport;
using helpers::Surroundings;
using helpers::TestVolume;
using helpers::TrashCan;
using helpers::TrashName;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class MovingCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    volume_.mountVolume("disk");
    surroundings_ = volume_.surroundings();
    target_.reset(open(volume_.path("disk").c_str(), O_RDONLY | O_DIRECTORY));
  }
  foundation::Result<void> copy(const std::string& name) {
    auto copied = copyItem(surroundings_.root.get(), name, target_.get(), "copy", "/" + name, options_);
    if (!copied) return copied.error();
    copied_ = std::move(copied).value();
    return {};
  }
  void remove(const std::string& name) {
    const auto removed = removeCopied(surroundings_.root.get(), copied_, "/" + name,
                                      [this](const std::string& path, const std::string& reason) {
                                        kept_.push_back(path + ": " + reason);
                                      });
    EXPECT_EQ(static_cast<bool>(removed), kept_.empty());
  }

  TestVolume volume_;
  Surroundings surroundings_;
  UniqueDescriptor target_;
  CopyOptions options_ = optionsForMoving();
  CopyRecord copied_;
  std::vector<std::string> kept_;
  RecordedReport report_;
};

TEST_F(MovingCopyTest, EverythingArrivesWithOwnerModeTimesAndAttributes) {
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
  EXPECT_THAT(kept_, IsEmpty());
}

TEST_F(MovingCopyTest, HolesStayHoles) {
  volume_.makeFile("sparse", "");
  ASSERT_EQ(truncate(volume_.path("sparse").c_str(), 64 << 20), 0);
  ASSERT_TRUE(copy("sparse"));
  EXPECT_EQ(volume_.status("disk/copy").st_size, 64 << 20);
  EXPECT_LT(volume_.status("disk/copy").st_blocks, 1000);
}

TEST_F(MovingCopyTest, ATreeWithAMountInItIsNotMovedAndNoPartOfACopyStays) {
  volume_.makeFile("tree/a");
  volume_.mountVolume("tree/mounted");
  EXPECT_FALSE(copy("tree"));
  EXPECT_THAT(volume_.names("disk"), IsEmpty());
  EXPECT_TRUE(volume_.exists("tree/a"));
}

TEST_F(MovingCopyTest, AFullVolumeLeavesTheOriginalAndNoPartOfACopy) {
  ASSERT_EQ(mount("none", volume_.path("disk").c_str(), "tmpfs", MS_REMOUNT, "size=128k"), 0);
  volume_.makeFile("tree/small");
  volume_.makeFile("tree/large", std::string(1 << 20, 'x'));
  const auto copied = copy("tree");
  ASSERT_FALSE(copied);
  EXPECT_EQ(copied.error().code, ENOSPC);
  EXPECT_THAT(volume_.names("disk"), IsEmpty());
  EXPECT_TRUE(volume_.exists("tree/small"));
}

TEST_F(MovingCopyTest, WhatChangedOrCameAfterTheCopyIsKept) {
  volume_.makeFile("tree/same");
  volume_.makeFile("tree/changed");
  ASSERT_TRUE(copy("tree"));
  volume_.makeFile("tree/changed", "longer text");
  volume_.makeFile("tree/added");
  remove("tree");
  EXPECT_THAT(volume_.names("tree"), ElementsAre("added", "changed"));
  EXPECT_THAT(kept_, UnorderedElementsAre("/tree/added: changed or added since, left in place",
                                          "/tree/changed: changed or added since, left in place",
                                          "/tree: cannot be removed, though there is a copy of it"));
}

TEST_F(MovingCopyTest, SetIdBitsAndFileCapabilitiesStayBehind) {
  volume_.makeFile("tree/file", "text", 0644);
  struct {
    std::uint32_t words[5];
  } capabilities = {{0x02000000U, 1U << 13U, 0, 0, 0}};  // vfs_cap_data of revision 2: CAP_NET_RAW
  const std::string file = volume_.path("tree/file");
  ASSERT_EQ(setxattr(file.c_str(), "security.capability", &capabilities, sizeof capabilities, 0), 0);
  volume_.makeFile("tree/program", "text", 06755);
  volume_.makeFolder("tree/shared", 03775);
  ASSERT_EQ(mkfifo(volume_.path("tree/fifo").c_str(), 0600), 0);
  chmod(volume_.path("tree/fifo").c_str(), 06620);
  ASSERT_TRUE(copy("tree"));
  EXPECT_EQ(volume_.mode("disk/copy/program"), 0755U);
  EXPECT_EQ(volume_.mode("disk/copy/shared"), 01775U);
  EXPECT_EQ(volume_.mode("disk/copy/fifo"), 0620U);
  char value[64] = {};
  EXPECT_EQ(getxattr(volume_.path("disk/copy/file").c_str(), "security.capability", value, sizeof value), -1);
  remove("tree");
  EXPECT_FALSE(volume_.exists("tree"));
}

TEST_F(MovingCopyTest, ATreeWithADeviceIsNotMovedAndNoPartOfACopyStays) {
  for (const unsigned kind : {0U + S_IFCHR, 0U + S_IFBLK}) {
    volume_.makeFile("tree/a");
    ASSERT_EQ(mknod(volume_.path("tree/device").c_str(), static_cast<mode_t>(kind | 0600U), makedev(1, 7)),
              0);
    const auto copied = copy("tree");
    ASSERT_FALSE(copied);
    EXPECT_THAT(copied.error().description, HasSubstr("/tree/device: a device is not copied"));
    EXPECT_THAT(volume_.names("disk"), IsEmpty());
    EXPECT_THAT(volume_.names("tree"), ElementsAre("a", "device"));
    std::filesystem::remove(volume_.path("tree/device"));
  }
}

TEST_F(MovingCopyTest, AHardLinkPutInPlaceOfTheCopyIsNotGivenAway) {
  ASSERT_EQ(mkfifo(volume_.path("item").c_str(), 0600), 0);
  volume_.own("item", TestVolume::kBob);
  ASSERT_EQ(mkfifo(volume_.path("disk/roots").c_str(), 0600), 0);
  options_.progressInterval = std::chrono::milliseconds(0);
  options_.onProgress = [this](const CopyProgress&) {
    std::filesystem::remove(volume_.path("disk/copy"));
    std::filesystem::create_hard_link(volume_.path("disk/roots"), volume_.path("disk/copy"));
    return true;
  };
  EXPECT_FALSE(copy("item"));
  EXPECT_EQ(volume_.status("disk/roots").st_uid, 0U);
  EXPECT_TRUE(volume_.exists("item"));
}

class TrashByCopy : public MovingCopyTest {
 protected:
  /// What the trash's owner can do in it while something is copied there: exchange names.
  void exchangeAsAlice() {
    if (seen_ > 0) return;
    setfsuid(TestVolume::kAlice);
    const std::string trash = volume_.path("Users/alice/.Trash");
    for (const auto& entry : std::filesystem::directory_iterator(trash)) {
      const std::string name = entry.path();
      if (name.find(".copying-") == std::string::npos) continue;
      exchanges_ += unlink((name + "/item").c_str()) == 0 || unlink(name.c_str()) == 0 ? 1 : 0;
      static_cast<void>(rename(name.c_str(), (trash + "/aside").c_str()));
      symlink("/", name.c_str());
      ++seen_;
    }
    setfsuid(0);
  }

  int seen_ = 0;
  int exchanges_ = 0;
};

TEST_F(TrashByCopy, TheTrashsOwnerCannotExchangeWhatIsBeingMade) {
  ASSERT_EQ(mkfifo(volume_.path("disk/item").c_str(), 0600), 0);
  volume_.own("disk/item", TestVolume::kBob);
  volume_.makeFile("disk/.Trashes", "planted: nothing can be trashed on the volume itself");
  const auto item = locate(surroundings_, "/disk/item");
  ASSERT_TRUE(item);
  auto trash = TrashCan::open(surroundings_, report_, item.value().levels, item.value().levels.size() - 1);
  ASSERT_TRUE(trash);
  trash.value().onCopyStep([this] { exchangeAsAlice(); });
  const auto names = TrashName::ofItem("item", surroundings_.now());
  ASSERT_TRUE(trash.value().take(target_.get(), "item", "/disk/item", names)) << report_.text();
  EXPECT_EQ(seen_, 1);
  EXPECT_EQ(exchanges_, 0);
  EXPECT_TRUE(S_ISFIFO(volume_.status("Users/alice/.Trash/item").st_mode));
  EXPECT_EQ(volume_.status("Users/alice/.Trash/item").st_uid, TestVolume::kBob);
  EXPECT_FALSE(volume_.exists("disk/item"));
}

}  // namespace
}  // namespace platform
