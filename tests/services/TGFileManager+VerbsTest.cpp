#include <gmock/gmock.h>

#include <filesystem>

#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/services/ServicesTest.h"

namespace {

using foundation::systemError;
using std::string_literals::operator""s;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class TGFileManagerVerbsTest : public ServicesTest {
 protected:
  TGFileManagerVerbsTest() {
    for (const char* const tool : {"/bin/mv", "/bin/rm", "/bin/cp", "/bin/mkdir"})
      fakes_.files.makeFile(tool);
    fakes_.recorder.clear();
  }

  /// Every change of the file system fails from now on.
  void refuseChanges() {
    fakes_.files.beforeChange = [](const std::string& change, const std::string& path) {
      return change == "openForWriting" || change == "createFile" ? std::nullopt
                                                                  : std::optional(systemError(EACCES, path));
    };
  }
  [[nodiscard]] bool exists(const std::string& path) { return fakes_.files.exists(path); }
  [[nodiscard]] std::vector<std::string> privileged() const { return fakes_.recorder.only({"privileged"}); }

 private:
  foundation::SingletonScope<TGAuthorization> authorization_;
};

TEST_F(TGFileManagerVerbsTest, TrashingUnlocksAndRecyclesIntoTheUsersTrash) {
  fakes_.files.makeFile("/folder/a.txt");
  EXPECT_TRUE(TGFileManager::trashFile("/folder/a.txt"));
  EXPECT_THAT(calls(), ElementsAre("unlock /folder/a.txt", "recycle /folder -> /Users/alice/.Trash: a.txt"));
  EXPECT_TRUE(exists("/Users/alice/.Trash/a.txt"));
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, TrashingThatFailsGoesOnWithRightsAndLogsNothing) {
  fakes_.files.makeFile("/folder/a.txt");
  refuseChanges();
  EXPECT_TRUE(TGFileManager::trashFile("/folder/a.txt"));
  EXPECT_THAT(privileged(), ElementsAre("privileged /bin/mv -f /folder/a.txt /Users/alice/.Trash/a.txt"));
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, WhatDoesNotExistIsTrashedAndRemovedAlready) {
  std::filesystem::create_symlink("nowhere", fakes_.files.real("/dangling"));
  refuseChanges();
  for (const TGFileManager::Path& path : std::vector<TGFileManager::Path>{
           "/missing", "", std::nullopt, "/bin/mv\0x"s, "/dangling", std::string(5000, 'x'), "/\xff\xfe"}) {
    EXPECT_TRUE(TGFileManager::trashFile(path));
    EXPECT_TRUE(TGFileManager::removeFile(path));
  }
  EXPECT_THAT(fakes_.recorder.only({"recycle", "privileged", "authorization"}), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, TrashingToldNotToAuthorizeJustFails) {
  fakes_.files.makeFile("/folder/a.txt");
  refuseChanges();
  EXPECT_FALSE(TGFileManager::trashFile("/folder/a.txt", ShouldAuth::no));
  EXPECT_THAT(fakes_.recorder.only({"authorization", "privileged"}), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, WithoutATrashFolderTrashingGoesOnWithRights) {
  fakes_.files.makeFile("/folder/a.txt");
  fakes_.users.user = 0;
  fakes_.users.console = "nobody-known";
  EXPECT_FALSE(TGFileManager::trashFile("/folder/a.txt"));
  EXPECT_THAT(fakes_.recorder.only({"recycle", "run"}), IsEmpty());
  EXPECT_TRUE(exists("/folder/a.txt"));
}

TEST_F(TGFileManagerVerbsTest, RemovingUnlocksAndDeletesWithAllItHolds) {
  fakes_.files.makeFile("/folder/sub/a.txt");
  EXPECT_TRUE(TGFileManager::removeFile("/folder"));
  EXPECT_FALSE(exists("/folder"));
  EXPECT_THAT(calls(), ElementsAre("unlock /folder"));
}

TEST_F(TGFileManagerVerbsTest, RemovingThatFailsIsLoggedAndGoesOnWithRights) {
  fakes_.files.makeFile("/folder/a.txt");
  refuseChanges();
  EXPECT_TRUE(TGFileManager::removeFile("/folder/a.txt"));
  EXPECT_THAT(privileged(), ElementsAre("privileged /bin/rm -Rdf /folder/a.txt"));
  EXPECT_THAT(logEntries(),
              ElementsAre("Error removing file: /folder/a.txt: Permission denied. Authorizing..."));
}

TEST_F(TGFileManagerVerbsTest, RemovingToldNotToAuthorizeAnnouncesItAllTheSame) {
  fakes_.files.makeFile("/folder/a.txt");
  refuseChanges();
  EXPECT_FALSE(TGFileManager::removeFile("/folder/a.txt", ShouldAuth::no));
  EXPECT_THAT(logEntries(),
              ElementsAre("Error removing file: /folder/a.txt: Permission denied. Authorizing..."));
  EXPECT_THAT(fakes_.recorder.only({"authorization", "privileged"}), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, ProtectedFoldersAreRefusedByThePrivilegedVerb) {
  fakes_.files.makeFile("/Library/x");
  refuseChanges();
  EXPECT_FALSE(TGFileManager::removeFile("/Library"));
  EXPECT_THAT(privileged(), IsEmpty());
  EXPECT_THAT(messages(), ElementsAre("Unable to delete path /Library because it is a system directory."));
}

TEST_F(TGFileManagerVerbsTest, CreatingMakesTheFoldersAboveToo) {
  EXPECT_TRUE(TGFileManager::createDirectory("/a/b/c"));
  EXPECT_TRUE(fakes_.files.isDirectory("/a/b/c"));
  EXPECT_TRUE(TGFileManager::createDirectory("/a/b/c")) << "it is there";
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, CreatingThatFailsIsLoggedAndGoesOnWithRights) {
  refuseChanges();
  EXPECT_TRUE(TGFileManager::createDirectory("/a"));
  EXPECT_THAT(privileged(), ElementsAre("privileged /bin/mkdir -p /a"));
  EXPECT_FALSE(TGFileManager::createDirectory("/b", ShouldAuth::no));
  EXPECT_THAT(privileged(), SizeIs(1));
  EXPECT_THAT(logEntries(), ElementsAre("Error creating folder: /a: Permission denied. Authorizing...",
                                        "Error creating folder: /b: Permission denied. Authorizing..."));
}

TEST_F(TGFileManagerVerbsTest, WhereAFileIsNoFolderIsCreated) {
  fakes_.files.makeFile("/a");
  EXPECT_FALSE(TGFileManager::createDirectory("/a", ShouldAuth::no));
  EXPECT_FALSE(TGFileManager::createDirectory("/a/b", ShouldAuth::no));
}

TEST_F(TGFileManagerVerbsTest, CopyingUnlocksTheFolderThatItGoesInto) {
  fakes_.files.makeFile("/folder/a.txt", "content");
  fakes_.files.makeFolder("/to");
  EXPECT_TRUE(TGFileManager::copyFile("/folder/a.txt", "/to/b.txt"));
  EXPECT_THAT(calls(), ElementsAre("unlock /to"));
  EXPECT_EQ(fakes_.files.readFile("/to/b.txt", 100).value(), "content");
  EXPECT_TRUE(exists("/folder/a.txt"));
}

TEST_F(TGFileManagerVerbsTest, CopyingOntoWhatIsThereFailsAndGoesOnWithRights) {
  fakes_.files.makeFile("/a", "new");
  fakes_.files.makeFile("/b", "old");
  EXPECT_TRUE(TGFileManager::copyFile("/a", "/b"));
  EXPECT_EQ(fakes_.files.readFile("/b", 100).value(), "old")
      << "the tool may replace it, the user's copy not";
  EXPECT_THAT(privileged(), ElementsAre("privileged /bin/cp -f -p -R /a /b"));
  EXPECT_THAT(logEntries(), ElementsAre(AllOf(StartsWith("Error copying file: "),
                                              EndsWith("/b: File exists. Authorizing..."))));
  EXPECT_FALSE(TGFileManager::copyFile("/a", "/b", ShouldAuth::no));
  EXPECT_THAT(privileged(), SizeIs(1));
}

TEST_F(TGFileManagerVerbsTest, CopyingFromOrToNothingIsLoggedAndPrinted) {
  EXPECT_FALSE(TGFileManager::copyFile(std::nullopt, "/to"));
  EXPECT_FALSE(TGFileManager::copyFile(std::nullopt, std::nullopt));
  EXPECT_FALSE(TGFileManager::copyFile("/folder/a.txt", std::nullopt));
  const auto expected =
      ElementsAre("Error copying file: source path is nil", "Error copying file: source path is nil",
                  "Error copying file /folder/a.txt: destination path is nil");
  EXPECT_THAT(logEntries(), expected);
  EXPECT_THAT(messages(), expected);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, MovingUnlocksTheDestinationAndTheFolderOfTheNameInIt) {
  fakes_.files.makeFile("/from/name/a.txt");
  fakes_.files.makeFile("/to/name/inner/b.txt");
  fakes_.files.makeFile("/to/name/c.txt");
  EXPECT_FALSE(TGFileManager::moveFile("/from/name", "/to", ShouldAuth::no)) << "something is there";
  EXPECT_THAT(calls(), ElementsAre("unlock /to", "unlock /to/name/c.txt", "unlock /to/name/inner/b.txt"));
}

TEST_F(TGFileManagerVerbsTest, MovingMovesAndLogsNothing) {
  fakes_.files.makeFile("/from/a.txt");
  fakes_.files.makeFolder("/to");
  EXPECT_TRUE(TGFileManager::moveFile("/from/a.txt", "/to/b.txt"));
  EXPECT_TRUE(exists("/to/b.txt"));
  EXPECT_FALSE(exists("/from/a.txt"));
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGFileManagerVerbsTest, MovingThatFailsIsLoggedAndGoesOnWithRights) {
  fakes_.files.makeFile("/a");
  refuseChanges();
  EXPECT_TRUE(TGFileManager::moveFile("/a", "/b"));
  EXPECT_THAT(privileged(), ElementsAre("privileged /bin/mv -f /a /b"));
  EXPECT_FALSE(TGFileManager::moveFile("/a", "/b", ShouldAuth::no));
  EXPECT_THAT(privileged(), SizeIs(1));
  EXPECT_THAT(logEntries(), ElementsAre("Error moving file: /a: Permission denied. Authorizing...",
                                        "Error moving file: /a: Permission denied. Authorizing..."));
}

TEST_F(TGFileManagerVerbsTest, PathsThatNameNothingAreRefusedWithoutAskingForRights) {
  fakes_.files.makeFile("/there");
  for (const TGFileManager::Path& path : std::vector<TGFileManager::Path>{"", std::nullopt, "/there\0x"s}) {
    EXPECT_FALSE(TGFileManager::createDirectory(path));
    EXPECT_FALSE(TGFileManager::copyFile(path, "/to"));
    EXPECT_FALSE(TGFileManager::copyFile("/there", path));
    EXPECT_FALSE(TGFileManager::moveFile(path, "/to"));
    EXPECT_FALSE(TGFileManager::moveFile("/there", path));
    EXPECT_FALSE(TGFileManager::compressFile(path, "/to.zip"));
    EXPECT_FALSE(TGFileManager::compressFile("/there", path));
  }
  EXPECT_THAT(fakes_.recorder.only({"authorization", "privileged", "run", "recycle"}), IsEmpty());
  EXPECT_TRUE(exists("/there"));
  EXPECT_FALSE(exists("/to"));
}

TEST_F(TGFileManagerVerbsTest, OfNoPathToMoveThePrivilegedVerbTells) {
  EXPECT_FALSE(TGFileManager::moveFile(std::nullopt, "/to"));
  EXPECT_FALSE(TGFileManager::moveFile("/from", std::nullopt));
  EXPECT_FALSE(TGFileManager::moveFile(std::nullopt, "/to", ShouldAuth::no));
  EXPECT_THAT(messages(), ElementsAre("Error in authMoveFile: old path is null",
                                      "Error in authMoveFile: new path is null"));
  EXPECT_THAT(logEntries(), AllOf(SizeIs(3), Each(StartsWith("Error moving file: "))));
}

TEST_F(TGFileManagerVerbsTest, NamesOfAnyBytesAndLengthsOnlyFail) {
  refuseChanges();
  for (const std::string& path : {"/"s + std::string(5000, 'x'), "relative"s, "/\xff\xfe\x80"s, "/a\nb"s}) {
    EXPECT_FALSE(TGFileManager::createDirectory(path, ShouldAuth::no));
    EXPECT_FALSE(TGFileManager::copyFile(path, path, ShouldAuth::no));
    EXPECT_FALSE(TGFileManager::moveFile(path, path, ShouldAuth::no));
  }
  EXPECT_THAT(logEntries(), Contains("Error copying file: /\xff\xfe\x80: Permission denied. Authorizing..."));
}

TEST_F(TGFileManagerVerbsTest, AToolThatCannotBeStartedIsAFailureAndNoException) {
  fakes_.users.user = 0;
  fakes_.files.makeFile("/folder/a.txt");
  refuseChanges();
  fakes_.subprocesses.runs["/bin/rm"].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "too many processes");
  EXPECT_FALSE(TGFileManager::removeFile("/folder/a.txt"));
  EXPECT_THAT(messages(), Contains(HasSubstr("+[TGFileManager removeFile:shouldAuth:]")));
}

TEST_F(TGFileManagerVerbsTest, CompressingRunsDittoAndLooksForTheArchive) {
  fakes_.files.makeFile("/usr/bin/ditto");
  fakes_.files.makeFolder("/logs");
  fakes_.subprocesses.runs["/usr/bin/ditto"].whenLaunched = [&] { fakes_.files.makeFile("/Desktop/a.zip"); };
  EXPECT_TRUE(TGFileManager::compressFile("/logs", "/Desktop/a.zip"));
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/ditto -ck --keepParent /logs /Desktop/a.zip"));
}

TEST_F(TGFileManagerVerbsTest, CompressingMovesAnOldArchiveToTheTrash) {
  fakes_.files.makeFile("/usr/bin/ditto");
  fakes_.files.makeFile("/Desktop/a.zip", "old");
  EXPECT_FALSE(TGFileManager::compressFile("/logs", "/Desktop/a.zip")) << "the tool has made nothing";
  EXPECT_THAT(calls(), ElementsAre("recycle /Desktop -> /Users/alice/.Trash: a.zip",
                                   "run /usr/bin/ditto -ck --keepParent /logs /Desktop/a.zip"));
  EXPECT_EQ(fakes_.files.readFile("/Users/alice/.Trash/a.zip", 100).value(), "old");
}

TEST_F(TGFileManagerVerbsTest, AnOldArchiveThatCannotBeMovedAwayIsLeftToTheTool) {
  fakes_.files.makeFile("/usr/bin/ditto");
  fakes_.files.makeFile("/Desktop/a.zip", "old");
  refuseChanges();
  EXPECT_TRUE(TGFileManager::compressFile("/logs", "/Desktop/a.zip")) << "an archive is there";
  EXPECT_THAT(fakes_.recorder.only({"run", "privileged"}),
              ElementsAre("run /usr/bin/ditto -ck --keepParent /logs /Desktop/a.zip"));
}

TEST_F(TGFileManagerVerbsTest, CompressingSurvivesAToolThatIsMissingOrCannotBeStarted) {
  EXPECT_FALSE(TGFileManager::compressFile("/logs", "/Desktop/a.zip"));
  fakes_.files.makeFile("/usr/bin/ditto");
  fakes_.subprocesses.runs["/usr/bin/ditto"].launchFailure =
      foundation::Exception(foundation::kInvalidArgumentException, "no");
  EXPECT_FALSE(TGFileManager::compressFile("/logs", "/Desktop/a.zip"));
}

}  // namespace
