#include <gmock/gmock.h>

#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "tests/services/ServicesTest.h"

namespace {

using foundation::PropertyList;
using platform::FileOperationRef;
using platform::FileOperationStage;
using platform::FileOperationUpdate;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Implements everything; the one-argument forms must then never be called.
class WholeDelegate : public TGFileOperationDelegate {
 public:
  void fileOperationProgress(const TGFileOperationReport& report,
                             const FileOperationRef& operation) override {
    heard.emplace_back("progress of operation");
    keep(report);
    operations.push_back(operation);
  }
  void fileOperationProgress(const TGFileOperationReport&) override { heard.emplace_back("progress"); }
  void fileOperationFinished(const TGFileOperationReport& report,
                             const FileOperationRef& operation) override {
    heard.emplace_back("end of operation");
    keep(report);
    operations.push_back(operation);
  }
  void fileOperationFinished(const TGFileOperationReport&) override { heard.emplace_back("end"); }

  std::vector<std::string> heard;
  std::vector<TGFileOperationReport> reports;
  std::vector<FileOperationRef> operations;
  std::vector<bool> namedThis;

 private:
  /// Without the delegate, which would hold itself for ever.
  void keep(TGFileOperationReport report) {
    namedThis.push_back(report.delegate.get() == this);
    report.delegate = nullptr;
    reports.push_back(std::move(report));
  }
};

/// Implements the shorter forms only.
class ShortDelegate : public TGFileOperationDelegate {
 public:
  using TGFileOperationDelegate::fileOperationFinished;
  using TGFileOperationDelegate::fileOperationProgress;
  void fileOperationProgress(const TGFileOperationReport&) override { heard.emplace_back("progress"); }
  void fileOperationFinished(const TGFileOperationReport&) override { heard.emplace_back("end"); }

  std::vector<std::string> heard;
};

class TGFileManagerProgressTest : public ServicesTest {
 protected:
  TGFileManagerProgressTest() {
    fakes_.files.makeFile("/from/a");
    fakes_.files.makeFolder("/to");
    fakes_.recorder.clear();
  }

  void update(FileOperationStage stage, const PropertyList* status = nullptr, platform::OSStatus error = 0) {
    const FileOperationUpdate news{fakes_.fileOperations.operation, "/from/a", stage, error, status};
    fakes_.fileOperations.callback(news);
  }

  const PropertyList status_ = PropertyList::Dictionary{{platform::kFSOperationTotalBytesKey, 100},
                                                        {platform::kFSOperationBytesCompleteKey, 25}};

 private:
  foundation::SingletonScope<TGAuthorization> authorization_;
};

TEST_F(TGFileManagerProgressTest, ACopyIsScheduledAndThenBegunIntoTheFolderOfTheDestination) {
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", nullptr));
  EXPECT_THAT(calls(),
              ElementsAre("create operation", "schedule operation", "copy /from/a -> /to / b every 1s"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGFileManagerProgressTest, WhileItRunsReportsCarryInformationAndStatus) {
  const auto delegate = std::make_shared<WholeDelegate>();
  const auto object = std::make_shared<int>(1);
  const auto object2 = std::make_shared<int>(2);
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate, object, object2));
  update(FileOperationStage::running, &status_);
  ASSERT_THAT(delegate->heard, ElementsAre("progress of operation"));
  const TGFileOperationReport& report = delegate->reports[0];
  EXPECT_EQ(report.entries, PropertyList(PropertyList::Dictionary{{"stage", 2},
                                                                  {"source", "/from/a"},
                                                                  {"destination", "/to/b"},
                                                                  {"operationtype", "copy"},
                                                                  {"kFSOperationTotalBytesKey", 100},
                                                                  {"kFSOperationBytesCompleteKey", 25}}));
  EXPECT_THAT(delegate->namedThis, ElementsAre(true));
  EXPECT_EQ(report.object, object);
  EXPECT_EQ(report.object2, object2);
  EXPECT_EQ(delegate->operations[0], fakes_.fileOperations.operation);
}

TEST_F(TGFileManagerProgressTest, TheEndIsReportedWithoutStatusAndUnscheduled) {
  const auto delegate = std::make_shared<WholeDelegate>();
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate));
  fakes_.recorder.clear();
  update(FileOperationStage::complete);
  ASSERT_THAT(delegate->heard, ElementsAre("end of operation"));
  EXPECT_EQ(delegate->reports[0].entries,
            PropertyList(PropertyList::Dictionary{
                {"stage", 3}, {"source", "/from/a"}, {"destination", "/to/b"}, {"operationtype", "copy"}}));
  EXPECT_EQ(delegate->reports[0].object, nullptr);
  EXPECT_THAT(calls(), ElementsAre("unschedule operation"));
}

TEST_F(TGFileManagerProgressTest, ACopyThatFailedIsReportedAsFinished) {
  const auto delegate = std::make_shared<WholeDelegate>();
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate));
  update(FileOperationStage::complete, nullptr, platform::dskFulErr);
  EXPECT_THAT(delegate->heard, ElementsAre("end of operation"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGFileManagerProgressTest, ADelegateWithTheShorterFormsHearsThose) {
  const auto delegate = std::make_shared<ShortDelegate>();
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate));
  update(FileOperationStage::running, &status_);
  update(FileOperationStage::complete);
  EXPECT_THAT(delegate->heard, ElementsAre("progress", "end"));
}

TEST_F(TGFileManagerProgressTest, ADelegateWithoutAnyFormAndNoDelegateHearNothing) {
  for (const auto& delegate : {std::make_shared<TGFileOperationDelegate>(), TGFileManager::Delegate()}) {
    EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate));
    update(FileOperationStage::running, &status_);
    update(FileOperationStage::complete);
  }
}

TEST_F(TGFileManagerProgressTest, OtherStagesAndARunWithoutStatusReportNothing) {
  const auto delegate = std::make_shared<WholeDelegate>();
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate));
  update(FileOperationStage::undefined, &status_);
  update(FileOperationStage::preflighting, &status_);
  update(FileOperationStage::running);
  EXPECT_THAT(delegate->heard, IsEmpty());
}

TEST_F(TGFileManagerProgressTest, DelegatesAreCalledOnTheMainThreadAndNotWaitedFor) {
  const auto delegate = std::make_shared<WholeDelegate>();
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate));
  fakes_.recorder.clear();
  fakes_.mainThread.recordsWork = true;
  update(FileOperationStage::running, &status_);
  update(FileOperationStage::complete);
  EXPECT_THAT(calls(), ElementsAre("main (no wait)", "main (no wait)", "unschedule operation"));
}

TEST_F(TGFileManagerProgressTest, TheDelegateAndTheObjectsAreHeldAsLongAsTheCopy) {
  auto delegate = std::make_shared<WholeDelegate>();
  auto object = std::make_shared<int>(1);
  const std::weak_ptr<WholeDelegate> watched = delegate;
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", delegate, object));
  delegate.reset();
  EXPECT_FALSE(watched.expired());
  EXPECT_EQ(object.use_count(), 2);
  fakes_.fileOperations.callback = nullptr;
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(object.use_count(), 1);
}

TEST_F(TGFileManagerProgressTest, AMissingSourceIsNotCopied) {
  EXPECT_FALSE(TGFileManager::copyFileWithProgress("/missing", "/to/b", nullptr));
  EXPECT_FALSE(TGFileManager::copyFileWithProgress(std::nullopt, "/to/b", nullptr));
  EXPECT_THAT(messages(), ElementsAre("Error: File /missing doesn't exist. Aborting copy process...",
                                      "Error: File (null) doesn't exist. Aborting copy process..."));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGFileManagerProgressTest, AMissingFolderIsMade) {
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/new/folder/b", nullptr));
  EXPECT_TRUE(fakes_.files.isDirectory("/new/folder"));
  EXPECT_THAT(calls(), Contains("copy /from/a -> /new/folder / b every 1s"));
}

TEST_F(TGFileManagerProgressTest, AFolderThatCannotBeMadeEndsIt) {
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  fakes_.files.makeFile("/file");
  EXPECT_FALSE(TGFileManager::copyFileWithProgress("/from/a", "/file/folder/b", nullptr));
  EXPECT_THAT(messages(), Contains("Unable to copy file /from/a - destination directory /file/folder doesn't "
                                   "exist. Aborting copy process..."));
  EXPECT_THAT(fakes_.recorder.only({"create", "copy"}), IsEmpty());
}

TEST_F(TGFileManagerProgressTest, AFolderMadeWithRightsIsWaitedForTenSeconds) {
  fakes_.files.makeFile("/bin/mkdir");
  fakes_.files.beforeChange = [](const std::string& change, const std::string& path) {
    return change == "createDirectory" ? std::optional(foundation::systemError(EACCES, path)) : std::nullopt;
  };
  EXPECT_FALSE(TGFileManager::copyFileWithProgress("/from/a", "/new/b", nullptr));
  EXPECT_EQ(fakes_.clock.uptime(), std::chrono::seconds(10) + std::chrono::microseconds(500));
}

TEST_F(TGFileManagerProgressTest, AnOperationThatCannotBeScheduledIsNotBegun) {
  fakes_.fileOperations.scheduling = platform::paramErr;
  EXPECT_FALSE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", nullptr));
  EXPECT_THAT(messages(), ElementsAre("Failed to schedule operation with run loop: -50"));
  EXPECT_THAT(fakes_.recorder.only({"copy"}), IsEmpty());
}

TEST_F(TGFileManagerProgressTest, ACopyThatCannotBeginIsPrinted) {
  fakes_.fileOperations.beginning = platform::memFullErr;
  EXPECT_FALSE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", nullptr));
  EXPECT_THAT(messages(), ElementsAre("Failed to begin asynchronous object copy: -108"));
}

TEST_F(TGFileManagerProgressTest, AnOperationThatCannotBeUnscheduledIsPrinted) {
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", nullptr));
  fakes_.fileOperations.unscheduling = platform::paramErr;
  update(FileOperationStage::complete);
  EXPECT_THAT(messages(), ElementsAre("Failed to unschedule operation from run loop: -50"));
}

TEST_F(TGFileManagerProgressTest, CancellingIsThePlatforms) {
  EXPECT_TRUE(TGFileManager::copyFileWithProgress("/from/a", "/to/b", nullptr));
  fakes_.recorder.clear();
  TGFileManager::cancelFileOperation(fakes_.fileOperations.operation);
  TGFileManager::cancelFileOperation(nullptr);
  EXPECT_THAT(calls(), ElementsAre("cancel operation"));
}

}  // namespace
