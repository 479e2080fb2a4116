#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "diagnostics/TGLog.h"
#include "platform/fakes/FakePlatform.h"
#include "platform/linux/LinuxFileAttributes.h"
#include "platform/linux/LinuxFileBrowser.h"
#include "platform/linux/LinuxFileReferences.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/posix/GuardedFiles.h"
#include "platform/posix/PosixFileOperations.h"
#include "platform/posix/PosixFolderQueries.h"
#include "platform/posix/PosixMainThread.h"
#include "platform/posix/PosixUserInterfaceEvents.h"
#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/support/AsUser.h"
#include "tests/support/SingletonScope.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using platform::Immutable;
using support::SmallVolume;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// The file services of the system itself in a platform of fakes.
struct RealFiles {
  platform::PosixMainThread mainThread;
  platform::PosixUserInterfaceEvents userInterfaceEvents{mainThread};
  platform::GuardedFileQueries fileQueries;
  platform::GuardedFileChanges fileChanges;
  platform::LinuxFileAttributes fileAttributes;
  platform::PosixFolderQueries folderQueries;
  platform::LinuxFileReferences fileReferences;
  platform::LinuxFileBrowser fileBrowser;
  platform::LinuxWorkspace workspace;
};

/// The verbs on a real file system. Whoever runs the test is alice, whose home is a temporary folder.
class TGFileManagerRealFilesTest : public ::testing::Test {
 protected:
  TGFileManagerRealFilesTest() {
    folder_.makeAccessibleToAll();
    fakes_.users.home = home_;
    TGLog::createNewLog("Quillmend");
  }
  ~TGFileManagerRealFilesTest() override {
    TGLog::finishWriting();
    for (const std::string& path : locked_)
      static_cast<void>(real_.fileAttributes.setImmutable(path, Immutable::no));
  }

  /// A locked file, which is unlocked at the end where the test leaves it so.
  std::string lockedFile(const std::string& name) {
    std::string path = folder_.file(name, "text");
    TGFileManager::lockFile(path);
    EXPECT_TRUE(TGFileManager::isFileLocked(path));
    locked_.push_back(path);
    return path;
  }
  [[nodiscard]] std::vector<std::string> names(const std::string& path) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path)) names.push_back(entry.path().filename());
    return names;
  }
  [[nodiscard]] std::string log() const {
    TGLog::finishWriting();
    return folder_.content("home/Library/Logs/Vordenworks/Quillmend.1.log");
  }

  TemporaryFolder folder_;
  std::string home_ = folder_.folder("home");
  fakes::FakePlatform fakes_;
  RealFiles real_;
  platform::PosixFileOperations fileOperations_{real_.mainThread, fakes_.clock};

 private:
  platform::Platform platform_{.clock = fakes_.clock,
                               .mainThread = real_.mainThread,
                               .userInterfaceEvents = real_.userInterfaceEvents,
                               .usersAndFolders = fakes_.users,
                               .fileQueries = real_.fileQueries,
                               .fileChanges = real_.fileChanges,
                               .fileLocks = fakes_.fileLocks,
                               .fileAttributes = real_.fileAttributes,
                               .folderQueries = real_.folderQueries,
                               .fileReferences = real_.fileReferences,
                               .fileOperations = fileOperations_,
                               .fileBrowser = real_.fileBrowser,
                               .subprocesses = fakes_.subprocesses,
                               .applications = fakes_.applications,
                               .workspace = real_.workspace,
                               .authorization = fakes_.authorization,
                               .distributedNotifications = fakes_.distributedNotifications,
                               .localNotifications = fakes_.localNotifications,
                               .desktopNotifications = fakes_.desktopNotifications,
                               .clientConnections = fakes_.clientConnections,
                               .propertyLists = fakes_.propertyLists,
                               .preferences = fakes_.preferences,
                               .gathering = fakes_.gathering,
                               .alerts = fakes_.alerts,
                               .systemConsole = fakes_.systemConsole,
                               .mainBundle = fakes_.mainBundle,
                               .processInformation = fakes_.processInformation,
                               .keyboardLayout = fakes_.keyboardLayout,
                               .interruption = fakes_.interruption,
                               .desktopApplication = fakes_.desktopApplication};
  platform::PlatformScope scope_{platform_};
  foundation::SingletonScope<TGLog> log_;
  foundation::SingletonScope<TGAuthorization> authorization_;
  std::vector<std::string> locked_;
};

TEST_F(TGFileManagerRealFilesTest, NamesThatAreNotUtf8GoThroughEveryVerb) {
  const std::string from = folder_.folder("from");
  folder_.file("from/a\xff\n.txt", "text");
  const std::string to = folder_ / "to\xfe";
  EXPECT_TRUE(TGFileManager::createDirectory(to, 1s));
  EXPECT_TRUE(TGFileManager::copyFile(from + "/a\xff\n.txt", to + "/b\xff", 1s));
  EXPECT_TRUE(TGFileManager::moveFile(to + "/b\xff", to + "/c\xff", 1s));
  EXPECT_EQ(TGFileManager::uniqueFilename(from + "/a\xff\n.txt"), from + "/a\xff\n 2.txt");
  EXPECT_EQ(TGFileManager::fileSize(to), 4U);
  EXPECT_THAT(TGFileManager::filesMatchingWildcardPath(to + "/*"), ElementsAre(to + "/c\xff"));
  EXPECT_TRUE(TGFileManager::removeFile(to + "/c\xff", 1s));
  EXPECT_TRUE(TGFileManager::isFolderEmpty(to));
  EXPECT_THAT(TGFileManager::trashFilesOfType("TXT", from), ElementsAre(from + "/a\xff\n.txt"));
  EXPECT_THAT(names(home_ + "/.Trash"), ElementsAre("a\xff\n.txt"));
}

TEST_F(TGFileManagerRealFilesTest, ARefusalNamesTheItemAndItsReason) {
  folder_.file("a", "new");
  folder_.file("b", "old");
  EXPECT_FALSE(TGFileManager::copyFile(folder_ / "a", folder_ / "b", ShouldAuth::no));
  EXPECT_FALSE(TGFileManager::moveFile(folder_ / "a", folder_ / "b", ShouldAuth::no));
  EXPECT_FALSE(TGFileManager::createDirectory(folder_ / "a/below", ShouldAuth::no));
  EXPECT_EQ(folder_.content("b"), "old");
  const std::string text = log();
  EXPECT_THAT(text, HasSubstr("Error copying file: " + (folder_ / "b") + ": File exists. Authorizing..."));
  EXPECT_THAT(text, HasSubstr("Error moving file: " + (folder_ / "b") + ": File exists. Authorizing..."));
  EXPECT_THAT(text, HasSubstr("Error creating folder: " + (folder_ / "a/below") +
                              ": Not a directory. Authorizing..."));
}

TEST_F(TGFileManagerRealFilesTest, AFolderThatCannotBeListedCountsAsEmpty) {
  folder_.file("closed/a.log", "text");
  ::chmod((folder_ / "closed").c_str(), 0);
  support::AsUser::run(support::kNobody, [this] {
    const std::string closed = folder_ / "closed";
    EXPECT_TRUE(TGFileManager::isFolderEmpty(closed));
    EXPECT_TRUE(TGFileManager::trashDirectoryContents(closed, ShouldAuth::no));
    EXPECT_TRUE(TGFileManager::copyContentsOfDirectory(closed, folder_ / "home", 0s));
    EXPECT_THAT(TGFileManager::trashFilesOfType("log", closed), IsEmpty());
    EXPECT_THAT(TGFileManager::filesMatchingWildcardPath(closed + "/*"), IsEmpty());
    EXPECT_EQ(TGFileManager::fileSize(closed), 0U);
    TGFileManager::unlockFolder(closed);
  });
  ::chmod((folder_ / "closed").c_str(), 0700);
  EXPECT_EQ(folder_.content("closed/a.log"), "text");
}

/// What only root can set up.
class TGFileManagerRealVolumesTest : public TGFileManagerRealFilesTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to lock files and to mount";
  }
};

TEST_F(TGFileManagerRealVolumesTest, LockedFilesAreTrashedAndRemoved) {
  EXPECT_TRUE(TGFileManager::trashFile(lockedFile("a"), ShouldAuth::no));
  EXPECT_EQ(folder_.content("home/.Trash/a"), "text");
  EXPECT_FALSE(TGFileManager::isFileLocked(home_ + "/.Trash/a"));
  EXPECT_TRUE(TGFileManager::removeFile(lockedFile("b"), ShouldAuth::no));
  EXPECT_FALSE(fs::exists(folder_ / "b"));
}

TEST_F(TGFileManagerRealVolumesTest, ALockedFolderTakesACopy) {
  const std::string to = folder_.folder("to");
  TGFileManager::lockFile(to);
  ASSERT_TRUE(TGFileManager::isFileLocked(to));
  EXPECT_TRUE(TGFileManager::copyFile(folder_.file("a", "text"), to + "/a", ShouldAuth::no));
  EXPECT_FALSE(TGFileManager::isFileLocked(to));
  EXPECT_EQ(folder_.content("to/a"), "text");
}

TEST_F(TGFileManagerRealVolumesTest, AMoveUnlocksTheDestinationAndTheFilesOfTheNameInIt) {
  const std::string whole = folder_.folder("to");
  const std::string inside = lockedFile("to/name/deep/a");
  TGFileManager::lockFile(whole);
  folder_.file("name/b");
  EXPECT_FALSE(TGFileManager::moveFile(folder_ / "name", whole, ShouldAuth::no)) << "something is there";
  EXPECT_FALSE(TGFileManager::isFileLocked(whole));
  EXPECT_FALSE(TGFileManager::isFileLocked(inside));
}

TEST_F(TGFileManagerRealVolumesTest, WhatIsDeeperInsideStaysLockedAndIsKept) {
  lockedFile("tree/sub/a");
  EXPECT_FALSE(TGFileManager::removeFile(folder_ / "tree", ShouldAuth::no));
  EXPECT_THAT(log(), HasSubstr("Error removing file: "));
  EXPECT_EQ(folder_.content("tree/sub/a"), "text");
  TGFileManager::unlockFolder(folder_ / "tree");
  EXPECT_TRUE(TGFileManager::removeFile(folder_ / "tree", ShouldAuth::no));
}

TEST_F(TGFileManagerRealVolumesTest, AFullVolumeKeepsNoHalfOfWhatDoesNotFit) {
  const SmallVolume volume("1m");
  ASSERT_TRUE(volume.isMounted());
  folder_.file("tree/small", "text");
  folder_.file("tree/large", std::string(2UL << 20, 'x'));
  EXPECT_FALSE(TGFileManager::copyFile(folder_ / "tree", volume / "copy", ShouldAuth::no));
  EXPECT_FALSE(TGFileManager::moveFile(folder_ / "tree", volume / "moved", ShouldAuth::no));
  EXPECT_THAT(names(volume.path()), IsEmpty());
  EXPECT_THAT(names(folder_ / "tree"), UnorderedElementsAre("small", "large"));
  const std::string text = log();
  EXPECT_THAT(text, HasSubstr("Error copying file: "));
  EXPECT_THAT(text, HasSubstr("No space left on device. Authorizing..."));
}

TEST_F(TGFileManagerRealVolumesTest, TrashingFromAnotherVolumeNumbersNamesThatClash) {
  const SmallVolume volume;
  ASSERT_TRUE(volume.isMounted());
  for (const char* const content : {"one", "two"}) {
    std::ofstream(volume / "a.txt") << content;
    EXPECT_TRUE(TGFileManager::trashFile(volume / "a.txt", ShouldAuth::no));
  }
  EXPECT_THAT(names(volume.path()), IsEmpty());
  EXPECT_EQ(folder_.content("home/.Trash/a.txt"), "one");
  EXPECT_EQ(folder_.content("home/.Trash/a 2.txt"), "two");
}

}  // namespace
