#include "platform/linux/LinuxFileReferences.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/AsUser.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::kNobody;
using support::TemporaryFolder;

class LinuxFileReferencesTest : public ::testing::Test {
 protected:
  LinuxFileReferencesTest() { ::chmod(folder.path().c_str(), 0777); }
  FSRef referenceTo(const std::string& path) { return references.reference(path).value(); }

  TemporaryFolder folder;
  LinuxFileReferences references;
};

TEST_F(LinuxFileReferencesTest, AReferenceLeadsToItsItem) {
  const FSRef file = referenceTo(folder.file("file"));
  const FSRef sub = referenceTo(folder.folder("sub"));
  EXPECT_NE(file, FSRef());
  EXPECT_NE(file, sub);
  EXPECT_EQ(references.path(file).value(), folder / "file");
  EXPECT_EQ(references.path(sub).value(), folder / "sub");
}

TEST_F(LinuxFileReferencesTest, ItSurvivesARenameInTheFolder) {
  AsUser::run(kNobody, [this] {
    const FSRef reference = referenceTo(folder.file("file"));
    fs::rename(folder / "file", folder / "renamed\xff");
    EXPECT_EQ(references.path(reference).value(), folder / "renamed\xff");
    fs::rename(folder / "renamed\xff", folder / "again");
    EXPECT_EQ(references.path(reference).value(), folder / "again") << "it is known by its last name";
  });
}

TEST_F(LinuxFileReferencesTest, ForRootItSurvivesAMoveAnywhereOnTheVolume) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const FSRef reference = referenceTo(folder.file("a/b/file"));
  std::filesystem::create_directories(folder / "with blank");
  fs::rename(folder / "a/b/file", folder / "with blank/renamed");
  EXPECT_EQ(references.path(reference).value(), folder / "with blank/renamed");
  fs::rename(folder / "with blank", folder / "other");
  EXPECT_EQ(references.path(reference).value(), folder / "other/renamed") << "or of a folder above it";
  LinuxFileReferences forgetful;
  EXPECT_EQ(forgetful.path(reference).value(), folder / "other/renamed")
      << "the value holds all that it takes";
}

TEST_F(LinuxFileReferencesTest, AnItemThatIsGoneIsNotFoundAndNotMistakenForItsSuccessor) {
  const FSRef reference = referenceTo(folder.file("file", "old"));
  fs::remove(folder / "file");
  EXPECT_EQ(references.path(reference).error().code, ENOENT);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // file systems tell times no finer than this
  for (int attempt = 0; attempt < 50; ++attempt) {
    folder.file("file", "new");  // sooner or later it gets the old inode
    EXPECT_FALSE(references.path(reference));
    fs::remove(folder / "file");
  }
}

TEST_F(LinuxFileReferencesTest, ALinkIsTheItemWhereverItLeads) {
  fs::create_symlink("nowhere", folder / "link");
  const FSRef reference = referenceTo(folder / "link");
  fs::rename(folder / "link", folder / "renamed");
  EXPECT_EQ(references.path(reference).value(), folder / "renamed");
}

TEST_F(LinuxFileReferencesTest, FileSystemsOfAllKindsHaveReferences) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const support::SmallVolume volume;
  ASSERT_TRUE(volume.isMounted());
  std::ofstream(volume / "file") << "x";
  fs::create_directory(volume / "sub");
  const FSRef reference = referenceTo(volume / "file");
  fs::rename(volume / "file", volume / "sub/renamed");
  EXPECT_EQ(references.path(reference).value(), volume / "sub/renamed");
  EXPECT_EQ(references.path(referenceTo("/proc/version")).value(), "/proc/version")
      << "no handle, by its path";
}

TEST_F(LinuxFileReferencesTest, WhatIsNotThereHasNoReference) {
  EXPECT_EQ(references.reference(folder / "missing").error().code, ENOENT);
  EXPECT_EQ(references.reference("").error().code, ENOENT);
  EXPECT_EQ(references.path(FSRef()).error().code, ENOENT);
}

TEST_F(LinuxFileReferencesTest, AnyEightyBytesAreHarmless) {
  for (int fill = 0; fill < 256; ++fill) {
    FSRef reference;
    reference.hidden.fill(static_cast<std::uint8_t>(fill));
    EXPECT_FALSE(references.path(reference));
    reference.hidden[0] = 1;
    EXPECT_FALSE(references.path(reference));
  }
}

TEST_F(LinuxFileReferencesTest, ManyReferencesForgetTheOldestPathsOnly) {
  AsUser::run(kNobody, [this] {
    const FSRef first = referenceTo(folder.file("first"));
    for (int number = 0; number < 4096; ++number) {
      static_cast<void>(referenceTo(folder.file(std::to_string(number))));
    }
    const FSRef last = referenceTo(folder / "4095");
    fs::rename(folder / "4095", folder / "renamed");
    EXPECT_EQ(references.path(last).value(), folder / "renamed");
    EXPECT_EQ(references.path(first).ok(), ::getuid() == 0);
  });
}

}  // namespace
}  // namespace platform
