#include "platform/macos/MacFileOperations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "platform/fakes/FakePlatform.h"
#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixMainThread.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/macsdk/fakes/FakeFileOperations.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using foundation::PropertyList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Lets a test look at the moment when something is handed over.
class WatchedMainThread : public PosixMainThread {
 public:
  void perform(std::function<void()> work, Wait wait) override {
    if (onPerform) onPerform();
    PosixMainThread::perform(std::move(work), wait);
  }

  std::function<void()> onPerform;
};

class MacFileOperationsTest : public ::testing::Test {
 protected:
  struct Heard {
    FileOperationStage stage;
    OSStatus error;
    std::string currentItem;
    PropertyList status;
    bool onMainThread;
  };

  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::fileOperations() = {};
    source = folder.file("from/a", "content");
    std::filesystem::create_directories(folder / "to");
    operations.emplace(mainThread, clock);
    operation = operations->create();
    ASSERT_NE(operation, nullptr);
    ASSERT_EQ(operations->scheduleOnMainThread(operation), noErr);
  }
  void TearDown() override {
    operations.reset();
    operation.reset();
    heard.clear();
    ::fakes::lockedItems().clear();
    EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released";
  }

  OSStatus begin(const std::string& from, const std::string& to) {
    return operations->copyObject(operation, from, to, "copy", 1s, [this](const FileOperationUpdate& update) {
      heard.push_back({update.stage, update.error, update.currentItem,
                       update.statusDictionary != nullptr ? *update.statusDictionary : PropertyList(),
                       mainThread.isCurrent()});
    });
  }
  [[nodiscard]] bool hasEnded() const {
    return !heard.empty() && heard.back().stage == FileOperationStage::complete;
  }
  void serveToTheEnd() {
    for (int turn = 0; turn < 60000 && !hasEnded(); ++turn) mainThread.serveUntilReadable(-1, 1ms);
    ASSERT_TRUE(hasEnded());
  }
  [[nodiscard]] std::vector<std::string> namesInTo() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder / "to")) names.push_back(entry.path().filename());
    return names;
  }

  support::TemporaryFolder folder;
  ::fakes::FakePlatform fake;
  WatchedMainThread mainThread;
  PosixClock clock{mainThread};
  std::optional<MacFileOperations> operations;
  FileOperationRef operation;
  std::string source;
  std::vector<Heard> heard;
};

TEST_F(MacFileOperationsTest, TheSystemCopiesAndItsEndIsHeardOnTheMainThread) {
  EXPECT_EQ(begin(folder / "from", folder / "to"), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, noErr);
  EXPECT_TRUE(heard.back().onMainThread);
  EXPECT_EQ(folder.content("to/copy/a"), "content");
  EXPECT_THAT(namesInTo(), ElementsAre("copy"));
  EXPECT_EQ(operations->unscheduleFromMainThread(operation), noErr);
  operations.reset();  // its thread has ended
  EXPECT_THAT(::fakes::fileOperations().calls,
              ElementsAre("FSFileOperationCreate ", "FSFileOperationScheduleWithRunLoop default",
                          "FSPathCopyObjectAsync " + (folder / "from") + " options 0 interval 1.000000",
                          "FSFileOperationUnscheduleFromRunLoop default"));
}

TEST_F(MacFileOperationsTest, WhileItRunsItsStatusIsToldByTheProgramsKeys) {
  begin(source, folder / "to");
  serveToTheEnd();
  ASSERT_THAT(heard, SizeIs(2)) << "running and complete";
  EXPECT_EQ(heard[0].stage, FileOperationStage::running);
  EXPECT_EQ(heard[0].currentItem, source);
  const PropertyList* const total = heard[0].status.find(kFSOperationTotalBytesKey);
  ASSERT_NE(total, nullptr);
  EXPECT_EQ(total->integerValue(), 7);
  EXPECT_EQ(heard[0].status.stringFor(kFSOperationCurrentItemKey), source);
  EXPECT_EQ(heard[0].status.stringFor("the system's own"), "x");
}

TEST_F(MacFileOperationsTest, ACopyThatFailsLeavesNothingBehind) {
  ::fakes::fileOperations().outcome = ioErr;
  EXPECT_EQ(begin(source, folder / "to"), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, ioErr);
  operations.reset();
  EXPECT_THAT(namesInTo(), IsEmpty());
}

TEST_F(MacFileOperationsTest, NothingOfItIsLeftButTheCopyWhenItsEndIsTold) {
  for (const OSStatus outcome : {ioErr, noErr}) {
    operation = operations->create();
    ASSERT_EQ(operations->scheduleOnMainThread(operation), noErr);
    ::fakes::fileOperations().outcome = outcome;
    std::vector<std::string> left;
    mainThread.onPerform = [&] { left = namesInTo(); };
    heard.clear();
    EXPECT_EQ(begin(source, folder / "to"), noErr);
    serveToTheEnd();
    EXPECT_THAT(left, SizeIs(outcome == noErr ? 1 : 0)) << ::testing::PrintToString(left);
  }
}

TEST_F(MacFileOperationsTest, ACopyOfWhatIsLockedGetsItsNameAndIsLockedAgain) {
  ::fakes::fileOperations().locks = true;
  EXPECT_EQ(begin(source, folder / "to"), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, noErr);
  EXPECT_THAT(namesInTo(), ElementsAre("copy"));
  operations.reset();
  struct stat status {};
  ASSERT_EQ(::stat((folder / "to/copy").c_str(), &status), 0);
  EXPECT_THAT(::fakes::lockedItems(), ElementsAre(status.st_ino));
}

TEST_F(MacFileOperationsTest, ACopyThatFailsLeavesNothingLockedBehind) {
  ::fakes::fileOperations().locks = true;
  ::fakes::fileOperations().outcome = ioErr;
  begin(source, folder / "to");
  serveToTheEnd();
  operations.reset();
  EXPECT_THAT(namesInTo(), IsEmpty());
}

TEST_F(MacFileOperationsTest, ACancelledCopyLeavesNothingBehind) {
  EXPECT_EQ(operations->cancel(operation), paramErr) << "it has not begun";
  ::fakes::fileOperations().runsUntilCancelled = true;
  begin(source, folder / "to");
  EXPECT_EQ(operations->cancel(operation), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, userCanceledErr);
  operations.reset();
  EXPECT_THAT(namesInTo(), IsEmpty());
}

TEST_F(MacFileOperationsTest, WhatStandsAtTheDestinationStays) {
  folder.file("to/copy", "theirs");
  EXPECT_EQ(begin(source, folder / "to"), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, dupFNErr);
  EXPECT_EQ(folder.content("to/copy"), "theirs");
}

TEST_F(MacFileOperationsTest, AFolderThatIsNotThereIsHeardOf) {
  EXPECT_EQ(begin(source, folder / "absent"), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, fnfErr);
}

TEST_F(MacFileOperationsTest, WhatTheSystemDoesNotBeginIsAnsweredAtOnce) {
  for (const char* function : {"FSFileOperationScheduleWithRunLoop", "FSPathCopyObjectAsync"}) {
    ::fakes::fileOperations().statuses = {{function, permErr}};
    operation = operations->create();
    EXPECT_EQ(begin(source, folder / "to"), permErr) << function;
  }
  operations.reset();
  EXPECT_THAT(heard, IsEmpty());
  EXPECT_THAT(namesInTo(), IsEmpty());
}

TEST_F(MacFileOperationsTest, WhatWasScheduledAndNotBegunIsUnscheduled) {
  ::fakes::fileOperations().statuses = {{"FSPathCopyObjectAsync", permErr}};
  EXPECT_EQ(begin(source, folder / "to"), permErr);
  operations.reset();
  EXPECT_EQ(::fakes::fileOperations().calls.back(), "FSFileOperationUnscheduleFromRunLoop default");
}

TEST_F(MacFileOperationsTest, ARunLoopWithoutAnythingToServeIsGivenTime) {
  ::fakes::fileOperations().isWithoutSourcesAtFirst = true;
  begin(source, folder / "to");
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, noErr);
}

TEST_F(MacFileOperationsTest, AnOperationCopiesOnceAndNamesMustBeNames) {
  const auto copy = [this](const std::string& name) {
    return operations->copyObject(operation, source, folder / "to", name, 1s, [](const auto&) {});
  };
  for (const char* name : {"", ".", "..", "a/b"}) EXPECT_EQ(copy(name), paramErr) << name;
  begin(source, folder / "to");
  serveToTheEnd();
  EXPECT_EQ(copy("again"), paramErr);
}

TEST_F(MacFileOperationsTest, WithoutTheMainThreadNothingIsHeard) {
  EXPECT_EQ(operations->unscheduleFromMainThread(operation), noErr);
  EXPECT_EQ(operations->unscheduleFromMainThread(operation), paramErr);
  begin(source, folder / "to");
  operations.reset();
  mainThread.serveUntilReadable(-1, 1ms);
  EXPECT_THAT(heard, IsEmpty());
}

TEST_F(MacFileOperationsTest, AnOperationThatTheSystemDoesNotMakeIsNone) {
  ::fakes::fileOperations().statuses["FSFileOperationCreate"] = memFullErr;
  EXPECT_EQ(operations->create(), nullptr);
  EXPECT_EQ(operations->scheduleOnMainThread(nullptr), paramErr);
}

TEST_F(MacFileOperationsTest, RootCopiesByDescriptors) {
  fake.users.user = 0;
  operation = operations->create();
  EXPECT_FALSE(CarbonFileOperations::owns(operation));
  EXPECT_EQ(operations->scheduleOnMainThread(operation), noErr);
  begin(source, folder / "to");
  serveToTheEnd();
  EXPECT_EQ(folder.content("to/copy"), "content");
  EXPECT_EQ(operations->unscheduleFromMainThread(operation), noErr);
  EXPECT_THAT(::fakes::fileOperations().calls, ElementsAre("FSFileOperationCreate "));
}

}  // namespace
}  // namespace platform
