#include <gmock/gmock.h>

#include <filesystem>

#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/services/ServicesTest.h"

namespace {

using namespace std::chrono_literals;
using foundation::systemError;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TGFileManagerFoldersTest : public ServicesTest {
 protected:
  TGFileManagerFoldersTest() {
    for (const char* const tool : {"/bin/mv", "/bin/rm", "/bin/cp"}) fakes_.files.makeFile(tool);
    fakes_.recorder.clear();
  }

  void link(const std::string& target, const std::string& path) {
    std::filesystem::create_symlink(target, fakes_.files.real(path));
  }
  /// Changes of that path fail.
  void refuse(const std::string& path) {
    fakes_.files.beforeChange = [path](const std::string&, const std::string& changed) {
      return changed == path ? std::optional(systemError(EACCES, path)) : std::nullopt;
    };
  }
  [[nodiscard]] std::vector<std::string> recycled() const { return fakes_.recorder.only({"recycle"}); }
  [[nodiscard]] bool exists(const std::string& path) { return fakes_.files.exists(path); }

 private:
  foundation::SingletonScope<TGAuthorization> authorization_;
};

TEST_F(TGFileManagerFoldersTest, TrashingContentsTrashesEveryEntryHiddenOnesIncluded) {
  fakes_.files.makeFile("/folder/.hidden");
  fakes_.files.makeFile("/folder/a");
  fakes_.files.makeFile("/folder/sub/b");
  EXPECT_TRUE(TGFileManager::trashDirectoryContents("/folder"));
  EXPECT_THAT(recycled(), ElementsAre("recycle /folder -> /Users/alice/.Trash: .hidden",
                                      "recycle /folder -> /Users/alice/.Trash: a",
                                      "recycle /folder -> /Users/alice/.Trash: sub"));
  EXPECT_TRUE(exists("/folder"));
}

TEST_F(TGFileManagerFoldersTest, TrashingContentsGoesOnAfterAFailureAndTellsOfIt) {
  fakes_.files.makeFile("/folder/a");
  fakes_.files.makeFile("/folder/b");
  refuse("/folder/a");
  EXPECT_FALSE(TGFileManager::trashDirectoryContents("/folder", ShouldAuth::no));
  EXPECT_TRUE(exists("/folder/a"));
  EXPECT_FALSE(exists("/folder/b"));
  EXPECT_THAT(fakes_.recorder.only({"privileged"}), IsEmpty());
  EXPECT_TRUE(TGFileManager::trashDirectoryContents("/folder"));
  EXPECT_THAT(fakes_.recorder.only({"privileged"}),
              ElementsAre("privileged /bin/mv -f /folder/a /Users/alice/.Trash/a"));
}

TEST_F(TGFileManagerFoldersTest, NothingToTrashOrToCopyIsSuccess) {
  fakes_.files.makeFolder("/empty");
  fakes_.files.makeFile("/file");
  for (const TGFileManager::Path& folder :
       std::vector<TGFileManager::Path>{"/empty", "/missing", "/file", "", std::nullopt}) {
    EXPECT_TRUE(TGFileManager::trashDirectoryContents(folder));
    EXPECT_TRUE(TGFileManager::copyContentsOfDirectory(folder, "/to", 1s));
  }
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGFileManagerFoldersTest, CopyingContentsCopiesEveryEntry) {
  fakes_.files.makeFile("/from/.a", "1");
  fakes_.files.makeFile("/from/sub/b", "2");
  fakes_.files.makeFolder("/to");
  EXPECT_TRUE(TGFileManager::copyContentsOfDirectory("/from", "/to", 1s));
  EXPECT_TRUE(exists("/to/.a"));
  EXPECT_TRUE(exists("/to/sub/b"));
  EXPECT_TRUE(exists("/from/sub/b"));
}

TEST_F(TGFileManagerFoldersTest, CopyingContentsEndsAtTheFirstFailure) {
  for (const char* const name : {"/from/a", "/from/b", "/from/c"}) fakes_.files.makeFile(name);
  fakes_.files.makeFolder("/to");
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  refuse("/from/b");
  EXPECT_FALSE(TGFileManager::copyContentsOfDirectory("/from", "/to", 1s));
  EXPECT_TRUE(exists("/to/a"));
  EXPECT_FALSE(exists("/to/c"));
}

TEST_F(TGFileManagerFoldersTest, CopyingContentsNowhereFails) {
  fakes_.files.makeFile("/from/a");
  EXPECT_FALSE(TGFileManager::copyContentsOfDirectory("/from", std::nullopt, 1s));
  EXPECT_THAT(messages(), ElementsAre("Error copying file /from/a: destination path is nil"));
}

TEST_F(TGFileManagerFoldersTest, AFolderWithNothingButTheFindersFilesAndEmptyFoldersIsEmpty) {
  fakes_.files.makeFolder("/empty");
  fakes_.files.makeFile("/store/.DS_Store");
  fakes_.files.makeFile("/icon/Icon\r");
  fakes_.files.makeFile("/both/.DS_Store");
  fakes_.files.makeFile("/both/Icon\r");
  fakes_.files.makeFile("/nested/.DS_Store");
  fakes_.files.makeFile("/nested/sub/deeper/.DS_Store");
  for (const char* const folder : {"/empty", "/store", "/icon", "/both", "/nested", "/missing", ""}) {
    EXPECT_TRUE(TGFileManager::isFolderEmpty(folder)) << folder;
  }
  EXPECT_TRUE(TGFileManager::isFolderEmpty(std::nullopt));
}

TEST_F(TGFileManagerFoldersTest, AFolderWithAnyOtherFileIsNotEmpty) {
  fakes_.files.makeFile("/icon/Icon");
  fakes_.files.makeFile("/case/.ds_store");
  fakes_.files.makeFile("/store/.DS_Store");
  fakes_.files.makeFile("/store/a");
  fakes_.files.makeFile("/nested/sub/a");
  fakes_.files.makeFolder("/dangling");
  link("nowhere", "/dangling/link");
  for (const char* const folder : {"/icon", "/case", "/store", "/nested", "/dangling"}) {
    EXPECT_FALSE(TGFileManager::isFolderEmpty(folder)) << folder;
  }
}

TEST_F(TGFileManagerFoldersTest, AFolderThatHoldsItselfIsNotEmptyAndTheQuestionEnds) {
  fakes_.files.makeFolder("/a/b");
  link("..", "/a/b/up");
  EXPECT_FALSE(TGFileManager::isFolderEmpty("/a"));
  fakes_.files.makeFolder("/twice/empty");
  link("empty", "/twice/link");
  EXPECT_TRUE(TGFileManager::isFolderEmpty("/twice")) << "two ways to one empty folder are no cycle";
}

TEST_F(TGFileManagerFoldersTest, ManyLinksToOneFolderAreOneLook) {
  // Thirty folders, each with two links to the next: a billion ways to the last.
  for (int number = 0; number < 30; ++number) {
    const std::string folder = "/f" + std::to_string(number);
    const std::string next = "../f" + std::to_string(number + 1);
    fakes_.files.makeFolder(folder);
    link(next, folder + "/one");
    link(next, folder + "/two");
  }
  fakes_.files.makeFolder("/f30");
  EXPECT_TRUE(TGFileManager::isFolderEmpty("/f0"));
  EXPECT_THAT(TGFileManager::trashFilesNamed("x", "/f0"), IsEmpty());
  EXPECT_EQ(TGFileManager::fileSize("/f0"), 0U);
}

TEST_F(TGFileManagerFoldersTest, OnlyAnEmptyFolderIsRemoved) {
  fakes_.files.makeFile("/empty/.DS_Store");
  fakes_.files.makeFile("/full/a");
  EXPECT_TRUE(TGFileManager::removeFolderIfEmpty("/empty"));
  EXPECT_FALSE(exists("/empty"));
  EXPECT_FALSE(TGFileManager::removeFolderIfEmpty("/full"));
  EXPECT_TRUE(exists("/full/a"));
}

TEST_F(TGFileManagerFoldersTest, FilesAreTrashedByTheirExactNameInEverySubfolder) {
  fakes_.files.makeFile("/folder/a.log");
  fakes_.files.makeFile("/folder/A.log");
  fakes_.files.makeFile("/folder/sub/deeper/a.log");
  fakes_.files.makeFile("/folder/a.log.txt");
  fakes_.files.makeFile("/folder/other/a.log/inside");
  EXPECT_THAT(TGFileManager::trashFilesNamed("a.log", "/folder"),
              ElementsAre("/folder/a.log", "/folder/sub/deeper/a.log"));
  EXPECT_FALSE(exists("/folder/a.log"));
  EXPECT_THAT(recycled(), ElementsAre("recycle /folder -> /Users/alice/.Trash: a.log",
                                      "recycle /folder/sub/deeper -> /Users/alice/.Trash: a.log"));
  EXPECT_TRUE(exists("/folder/A.log"));
  EXPECT_TRUE(exists("/folder/other/a.log/inside")) << "a folder of the name is not trashed";
}

TEST_F(TGFileManagerFoldersTest, FilesAreTrashedByTheirExtensionWhateverItsCase) {
  fakes_.files.makeFile("/folder/a.log");
  fakes_.files.makeFile("/folder/sub/b.Log");
  fakes_.files.makeFile("/folder/sub/log");
  fakes_.files.makeFile("/folder/sub/c.logs");
  EXPECT_THAT(TGFileManager::trashFilesOfType("LOG", "/folder"),
              ElementsAre("/folder/a.log", "/folder/sub/b.Log"));
  EXPECT_FALSE(exists("/folder/sub/b.Log"));
  EXPECT_TRUE(exists("/folder/sub/c.logs"));
}

TEST_F(TGFileManagerFoldersTest, WhatCouldNotBeTrashedIsAnsweredAllTheSame) {
  fakes_.files.makeFile("/folder/a.log");
  refuse("/folder/a.log");
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  EXPECT_THAT(TGFileManager::trashFilesOfType("log", "/folder"), ElementsAre("/folder/a.log"));
  EXPECT_TRUE(exists("/folder/a.log"));
}

TEST_F(TGFileManagerFoldersTest, AUserFollowsALinkToAFolderOnceAndRootNever) {
  fakes_.files.makeFile("/elsewhere/a.log");
  fakes_.files.makeFolder("/folder");
  link("../elsewhere", "/folder/one");
  link("../elsewhere", "/folder/two");
  link(".", "/folder/self");
  fakes_.users.user = 0;
  EXPECT_THAT(TGFileManager::trashFilesOfType("log", "/folder"), IsEmpty());
  fakes_.users.user = 501;
  EXPECT_THAT(TGFileManager::trashFilesOfType("log", "/folder"), ElementsAre("/folder/one/a.log"));
}

TEST_F(TGFileManagerFoldersTest, NoFolderAndAFolderThatCannotBeListedHoldNothingToTrash) {
  fakes_.files.makeFile("/file.log");
  for (const TGFileManager::Path& folder :
       std::vector<TGFileManager::Path>{"/missing", "/file.log", "", std::nullopt}) {
    EXPECT_THAT(TGFileManager::trashFilesOfType("log", folder), IsEmpty());
    EXPECT_THAT(TGFileManager::trashFilesNamed("file.log", folder), IsEmpty());
  }
}

TEST_F(TGFileManagerFoldersTest, LockingAFolderLocksTheFilesInItAndNoFolder) {
  fakes_.files.makeFile("/folder/a");
  fakes_.files.makeFile("/folder/sub/b");
  fakes_.files.makeFolder("/folder/empty");
  TGFileManager::lockFolder("/folder");
  EXPECT_THAT(calls(), ElementsAre("lock /folder/a", "lock /folder/sub/b"));
  EXPECT_TRUE(TGFileManager::isFileLocked("/folder/sub/b"));
  EXPECT_FALSE(TGFileManager::isFileLocked("/folder/sub"));
  fakes_.recorder.clear();
  TGFileManager::unlockFolder("/folder");
  EXPECT_THAT(calls(), ElementsAre("unlock /folder/a", "unlock /folder/sub/b"));
  EXPECT_FALSE(TGFileManager::isFileLocked("/folder/sub/b"));
}

TEST_F(TGFileManagerFoldersTest, LockingAFileAsAFolderDoesNothing) {
  fakes_.files.makeFile("/file");
  TGFileManager::lockFolder("/file");
  TGFileManager::lockFolder("/missing");
  TGFileManager::lockFolder(std::nullopt);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGFileManagerFoldersTest, AMirrorOfAFileIsThatOfItsFolder) {
  fakes_.files.makeFile("/Users/x/file.txt");
  EXPECT_EQ(TGFileManager::createDirectoryStructure("/Users/x/file.txt", "/tmp/mirror"),
            "/tmp/mirror/Users/x");
  EXPECT_TRUE(fakes_.files.isDirectory("/tmp/mirror/Users/x"));
  EXPECT_FALSE(exists("/tmp/mirror/Users/x/file.txt"));
}

TEST_F(TGFileManagerFoldersTest, AMirrorOfAFolderIsItsOwnAndOneOfAPackageThatOfItsFolder) {
  fakes_.files.makeFolder("/Users/x");
  fakes_.files.makeFolder("/Applications/Tool.app");
  EXPECT_EQ(TGFileManager::createDirectoryStructure("/Users/x", "/m"), "/m/Users/x");
  EXPECT_EQ(TGFileManager::createDirectoryStructure("/Applications/Tool.app", "/m"), "/m/Applications");
  EXPECT_EQ(TGFileManager::createDirectoryStructure("/missing/file", "/m"), "/m/missing");
  EXPECT_TRUE(exists("/m/missing"));
}

TEST_F(TGFileManagerFoldersTest, AMirrorThatIsThereIsNotMadeAgain) {
  fakes_.files.makeFolder("/Users/x");
  fakes_.files.makeFolder("/m/Users/x");
  refuse("/m/Users/x");
  EXPECT_EQ(TGFileManager::createDirectoryStructure("/Users/x", "/m"), "/m/Users/x");
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerFoldersTest, AMirrorThatCannotBeMadeIsAnsweredAllTheSame) {
  fakes_.files.makeFolder("/Users/x");
  refuse("/m/Users/x");
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  EXPECT_EQ(TGFileManager::createDirectoryStructure("/Users/x", "/m"), "/m/Users/x");
  EXPECT_EQ(TGFileManager::createDirectoryStructure(std::nullopt, std::nullopt), "");
}

TEST_F(TGFileManagerFoldersTest, TheSizeOfAFolderIsThatOfAllItHolds) {
  fakes_.files.makeFile("/folder/a", std::string(100, 'x'));
  fakes_.files.makeFile("/folder/sub/.b", std::string(20, 'x'));
  link("a", "/folder/link");  // one byte: the length of its target
  EXPECT_EQ(TGFileManager::fileSize("/folder"), 121U);
  EXPECT_EQ(TGFileManager::fileSize("/folder/a"), 100U);
  EXPECT_EQ(TGFileManager::fileSize("/folder/link"), 1U);
  EXPECT_EQ(TGFileManager::fileSize("/missing"), 0U);
  EXPECT_EQ(TGFileManager::fileSize(std::nullopt), 0U);
}

}  // namespace
