#include <gmock/gmock.h>

#include <filesystem>

#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/services/ServicesTest.h"

namespace {

using foundation::systemError;
using std::string_literals::operator""s;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
      return change == "openForWriting" || change == "writeAtomically"
                 ? std::nullopt
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

}  // namespace
