#include <gmock/gmock.h>

#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/services/ServicesTest.h"

namespace {

using namespace std::chrono_literals;
using foundation::systemError;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Verbs whose tools, not waited for, have done nothing when they answer.
class TGFileManagerWaitingTest : public ServicesTest {
 protected:
  TGFileManagerWaitingTest() {
    for (const char* const tool : {"/bin/mv", "/bin/rm", "/bin/cp", "/bin/mkdir"})
      fakes_.files.makeFile(tool);
    fakes_.files.makeFile("/a");
    refusing_ = true;
    fakes_.files.beforeChange = [this](const std::string& change, const std::string& path) {
      const bool isLogs = change == "openForWriting" || change == "createFile";
      return refusing_ && !isLogs ? std::optional(systemError(EACCES, path)) : std::nullopt;
    };
    fakes_.recorder.clear();
  }

  void onEvent(int number, std::function<void()> action) {
    fakes_.userInterfaceEvents.whenAsked = [this, number, action](int count) {
      refusing_ = false;
      if (count == number) action();
    };
  }
  void remove(const std::string& path) { EXPECT_TRUE(fakes_.files.remove(path)); }
  [[nodiscard]] std::vector<std::string> pauses() const { return fakes_.recorder.only({"event", "sleep"}); }

  bool refusing_ = false;

 private:
  foundation::SingletonScope<TGAuthorization> authorization_;
};

TEST_F(TGFileManagerWaitingTest, WhatIsDoneAtOnceIsNotWaitedFor) {
  refusing_ = false;
  EXPECT_TRUE(TGFileManager::createDirectory("/folder", 10s));
  EXPECT_TRUE(TGFileManager::copyFile("/a", "/b", 10s));
  EXPECT_TRUE(TGFileManager::moveFile("/b", "/c", 10s));
  EXPECT_TRUE(TGFileManager::removeFile("/c", 10s));
  EXPECT_TRUE(TGFileManager::trashFile("/a", 10s));
  EXPECT_THAT(pauses(), IsEmpty());
}

TEST_F(TGFileManagerWaitingTest, AVerbThatFailsIsNotWaitedFor) {
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  EXPECT_FALSE(TGFileManager::createDirectory("/folder", 10s));
  EXPECT_FALSE(TGFileManager::copyFile("/a", "/b", 10s));
  EXPECT_FALSE(TGFileManager::moveFile("/a", "/b", 10s));
  EXPECT_FALSE(TGFileManager::removeFile("/a", 10s));
  EXPECT_FALSE(TGFileManager::trashFile("/a", 10s));
  EXPECT_THAT(pauses(), IsEmpty());
}

TEST_F(TGFileManagerWaitingTest, OnTheMainThreadEventsAreDispatchedUntilTheItemIsGone) {
  onEvent(3, [this] { remove("/a"); });
  EXPECT_TRUE(TGFileManager::removeFile("/a", 10s));
  EXPECT_THAT(pauses(), ElementsAre("event 10ms", "event 10ms", "event 10ms"));
}

TEST_F(TGFileManagerWaitingTest, OnTheMainThreadEventsAreDispatchedUntilTheItemIsThere) {
  onEvent(2, [this] { fakes_.files.makeFile("/b"); });
  EXPECT_TRUE(TGFileManager::copyFile("/a", "/b", 10s));
  EXPECT_THAT(pauses(), SizeIs(2));
}

TEST_F(TGFileManagerWaitingTest, ACreatedFolderIsWaitedFor) {
  onEvent(2, [this] { fakes_.files.makeFolder("/folder"); });
  EXPECT_TRUE(TGFileManager::createDirectory("/folder", 10s));
  // The half millisecond is the privileged verb's own.
  EXPECT_THAT(pauses(), ElementsAre("sleep 500us", "event 10ms", "event 10ms"));
}

TEST_F(TGFileManagerWaitingTest, TheSourceOfAMoveIsWatchedAndNotItsDestination) {
  onEvent(4, [this] { remove("/a"); });
  EXPECT_TRUE(TGFileManager::moveFile("/a", "/b", 10s));
  EXPECT_FALSE(fakes_.files.exists("/b"));
  EXPECT_THAT(pauses(), SizeIs(4));
}

TEST_F(TGFileManagerWaitingTest, ATrashedFileIsWatchedWhereItWas) {
  onEvent(1, [this] { remove("/a"); });
  EXPECT_TRUE(TGFileManager::trashFile("/a", 10s));
  EXPECT_THAT(pauses(), SizeIs(1));
}

TEST_F(TGFileManagerWaitingTest, TheWaitEndsWithTheTimeOut) {
  EXPECT_FALSE(TGFileManager::removeFile("/a", 2s));
  EXPECT_THAT(pauses(), AllOf(SizeIs(200), Each("event 10ms")));
  EXPECT_EQ(fakes_.clock.uptime(), 2s);
}

TEST_F(TGFileManagerWaitingTest, ElsewhereTheWaitLooksEveryThreeTenthsOfASecond) {
  fakes_.mainThread.current = false;
  EXPECT_FALSE(TGFileManager::copyFile("/a", "/b", 1s));
  EXPECT_THAT(pauses(), ElementsAre("sleep 300ms", "sleep 300ms", "sleep 300ms", "sleep 300ms"));
}

TEST_F(TGFileManagerWaitingTest, NoTimeAnswersTheStateAtOnce) {
  fakes_.mainThread.current = false;
  for (const auto none : {0s, -5s, std::chrono::seconds::min()}) {
    EXPECT_FALSE(TGFileManager::removeFile("/a", none));
    EXPECT_FALSE(TGFileManager::copyFile("/a", "/b", none));
  }
  EXPECT_THAT(pauses(), IsEmpty());
  refusing_ = false;
  EXPECT_TRUE(TGFileManager::createDirectory("/folder", 0s));
}

TEST_F(TGFileManagerWaitingTest, CreatingWithoutTimeAnswersWhetherTheFolderExistsYet) {
  EXPECT_FALSE(TGFileManager::createDirectory("/folder", 0s));
  EXPECT_THAT(pauses(), ElementsAre("sleep 500us")) << "the privileged verb's own";
}

TEST_F(TGFileManagerWaitingTest, TheLongestTimeOutIsNoneToStumbleOver) {
  onEvent(1, [this] { remove("/a"); });
  EXPECT_TRUE(TGFileManager::removeFile("/a", std::chrono::seconds::max()));
}

TEST_F(TGFileManagerWaitingTest, AChangeOfCaseAloneIsGivenHalfAMillisecondAndNotWatched) {
  EXPECT_TRUE(TGFileManager::moveFile("/a", "/A", 10s));
  EXPECT_THAT(pauses(), ElementsAre("sleep 500us"));
  EXPECT_TRUE(fakes_.files.exists("/a")) << "as on a volume that takes both names for one";
}

TEST_F(TGFileManagerWaitingTest, BothPathsOfAMoveAreComparedWithoutCase) {
  fakes_.files.makeFile("/FOO/bar");
  EXPECT_TRUE(TGFileManager::moveFile("/FOO/bar", "/foo/BAR", 10s));
  EXPECT_THAT(pauses(), ElementsAre("sleep 500us"));
}

}  // namespace
