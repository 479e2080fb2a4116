#include "services/TGTask.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tests/services/ServicesTest.h"
#include "tests/support/NoMoreThreads.h"

namespace {

using platform::Stream;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using namespace std::chrono_literals;

constexpr const char* kTool = "/usr/bin/tool";
constexpr const char* kDate = "/bin/date";

class TGTaskTest : public ServicesTest {
 protected:
  TGTaskTest() { fakes_.subprocesses.executables = {kTool, kDate}; }

  void toolPrints(const std::string& output, const std::string& error = "") {
    fakes_.subprocesses.runs[kTool] = {.output = output, .error = error};
  }

  /// The tool runs until it is terminated; the time-outs pass as soon as it runs.
  void toolOutlastsItsTimeout(const std::string& output = "") {
    fakes_.clock.holdOtherThreads();
    fakes_.subprocesses.runs[kTool] = {.output = output, .runsUntilTerminated = true, .whenLaunched = [this] {
                                         fakes_.clock.wakeOtherThreads();
                                       }};
  }
};

/// Lets go of an instance and waits until the threads that it has started have done so too.
void waitForThreadsOf(std::shared_ptr<TGTask>& task) {
  const std::weak_ptr<TGTask> left = task;
  task.reset();
  while (!left.expired()) std::this_thread::yield();
}

const platform::SubprocessOptions& onlyChild(const fakes::FakePlatform& platform) {
  EXPECT_EQ(platform.subprocesses.created.size(), 1U);
  return platform.subprocesses.created.at(0);
}

TEST_F(TGTaskTest, RunTaskLaunchesAndWaits) {
  fakes_.subprocesses.recordsWaits = true;
  EXPECT_TRUE(TGTask::runTask(kTool, {{"-c", "a file"}}));
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool -c a file", "wait /usr/bin/tool"));
  EXPECT_THAT(onlyChild(fakes_).arguments, ElementsAre("-c", "a file"));
}

TEST_F(TGTaskTest, RunTaskDiscardsOutputAndLeavesInputAsItIs) {
  TGTask::runTask(kTool, std::nullopt);
  EXPECT_EQ(onlyChild(fakes_).standardInput, Stream::inherited);
  EXPECT_EQ(onlyChild(fakes_).standardOutput, Stream::nullDevice);
  EXPECT_EQ(onlyChild(fakes_).standardError, Stream::nullDevice);
}

TEST_F(TGTaskTest, TheSlotHoldsTheSubprocessFromBeforeItsLaunch) {
  fakes_.subprocesses.runs[kTool].launchFailure = foundation::Exception("NSInvalidArgumentException", "no");
  TGTaskSlot slot;
  EXPECT_THROW(TGTask::runTask(kTool, std::nullopt, &slot), foundation::Exception);
  ASSERT_NE(slot.load(), nullptr);
  EXPECT_EQ(slot.load()->launchPath(), kTool);
  TGTaskSlot second;
  EXPECT_THROW(TGTask::terminationCodeFromTask(kTool, std::nullopt, &second), foundation::Exception);
  EXPECT_NE(second.load(), nullptr);
  TGTaskSlot third;
  EXPECT_THROW(TGTask::stringFromTask(kTool, std::nullopt, &third), foundation::Exception);
  EXPECT_NE(third.load(), nullptr);
}

TEST_F(TGTaskTest, AToolThatCannotBeLaunchedThrowsWithoutAMessage) {
  fakes_.subprocesses.runs[kTool].launchFailure = foundation::Exception("NSInvalidArgumentException", "no");
  EXPECT_THROW(TGTask::runTaskAndReturn(kTool, std::nullopt), foundation::Exception);
  EXPECT_THROW(TGTask::dataFromTask(kTool, std::nullopt, nullptr), foundation::Exception);
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGTaskTest, TerminationCodeIsTheToolsStatus) {
  fakes_.subprocesses.recordsWaits = true;
  fakes_.subprocesses.runs[kTool].status = 3;
  EXPECT_EQ(TGTask::terminationCodeFromTask(kTool, {{"x"}}), 3);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool x", "wait /usr/bin/tool"));
  EXPECT_EQ(onlyChild(fakes_).standardInput, Stream::inherited);
  EXPECT_EQ(onlyChild(fakes_).standardOutput, Stream::nullDevice);
  EXPECT_EQ(onlyChild(fakes_).standardError, Stream::nullDevice);
}

TEST_F(TGTaskTest, TerminationCodeDoesNotWaitForAToolThatHasEnded) {
  fakes_.subprocesses.recordsWaits = true;
  TGTaskSlot slot;
  fakes_.subprocesses.runs[kTool].whenLaunched = [&] { slot.load()->terminate(); };
  EXPECT_EQ(TGTask::terminationCodeFromTask(kTool, std::nullopt, &slot), 0);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
}

TEST_F(TGTaskTest, RunTaskAndReturnDoesNotWait) {
  fakes_.subprocesses.recordsWaits = true;
  TGTask::runTaskAndReturn(kTool, {{"x"}});
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool x"));
  EXPECT_EQ(onlyChild(fakes_).standardInput, Stream::inherited);
  EXPECT_EQ(onlyChild(fakes_).standardOutput, Stream::nullDevice);
  EXPECT_EQ(onlyChild(fakes_).standardError, Stream::nullDevice);
}

TEST_F(TGTaskTest, WhatRunTaskAndReturnStartedCanBeWaitedFor) {
  fakes_.subprocesses.recordsWaits = true;
  TGTaskSlot task;
  TGTask::runTaskAndReturn(kTool, std::nullopt, &task);
  ASSERT_NE(task.load(), nullptr);
  task.load()->waitUntilExit();
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "wait /usr/bin/tool"));
}

TEST_F(TGTaskTest, CaptureReadsAllOutputBeforeAnyErrorAndDoesNotWaitForTheExit) {
  toolPrints("result", "warning");
  fakes_.subprocesses.recordsWaits = true;
  fakes_.subprocesses.recordsPipes = true;
  EXPECT_THAT(TGTask::dataFromTask(kTool, {{"x"}}, nullptr), Optional(std::string("warning")));
  EXPECT_THAT(calls(),
              ElementsAre("run /usr/bin/tool x", "read output /usr/bin/tool", "read output /usr/bin/tool",
                          "read error /usr/bin/tool", "read output /usr/bin/tool", "read error /usr/bin/tool",
                          "close error /usr/bin/tool", "close output /usr/bin/tool"));
  EXPECT_EQ(onlyChild(fakes_).standardInput, Stream::pipe);
  EXPECT_EQ(onlyChild(fakes_).standardOutput, Stream::pipe);
  EXPECT_EQ(onlyChild(fakes_).standardError, Stream::pipe);
}

TEST_F(TGTaskTest, AnyErrorTextReplacesTheOutput) {
  toolPrints("result", "w");
  EXPECT_THAT(TGTask::stringFromTask(kTool, std::nullopt), Optional(std::string("w")));
  toolPrints("result");
  EXPECT_THAT(TGTask::stringFromTask(kTool, std::nullopt), Optional(std::string("result")));
  toolPrints("");
  EXPECT_THAT(TGTask::dataFromTask(kTool, std::nullopt, nullptr), Optional(std::string()));
  EXPECT_THAT(TGTask::stringFromTask(kTool, std::nullopt), Optional(std::string()));
}

TEST_F(TGTaskTest, NoArgumentsRunTheToolWithoutAny) {
  TGTask::stringFromTask(kTool, std::nullopt);
  TGTask::runTask(kTool, std::nullopt);
  TGTask::stringFromTask(kTool, {{""}});
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "run /usr/bin/tool", "run /usr/bin/tool "));
  EXPECT_THAT(fakes_.subprocesses.created[0].arguments, IsEmpty());
  EXPECT_THAT(fakes_.subprocesses.created[2].arguments, ElementsAre(""));
}

TEST_F(TGTaskTest, TextIsAsciiUnlessAskedOtherwise) {
  fakes_.clock.holdOtherThreads();
  toolPrints("caf\xC3\xA9");
  EXPECT_EQ(TGTask::stringFromTask(kTool, std::nullopt), std::nullopt);
  EXPECT_EQ(TGTask::stringFromTask(kTool, std::nullopt, 5s), std::nullopt);
  EXPECT_EQ(TGTask::stringFromTask(kTool, std::nullopt, StringEncoding::ascii, nullptr), std::nullopt);
  EXPECT_THAT(TGTask::stringFromTask(kTool, std::nullopt, StringEncoding::utf8, nullptr),
              Optional(std::string("caf\xC3\xA9")));
  EXPECT_THAT(TGTask::stringFromTask(kTool, std::nullopt, StringEncoding::utf8, 5s),
              Optional(std::string("caf\xC3\xA9")));
  EXPECT_THAT(TGTask::dataFromTask(kTool, std::nullopt, 5s), Optional(std::string("caf\xC3\xA9")));
  fakes_.clock.waitForSleepers(3);
}

TEST_F(TGTaskTest, BytesThatAreNoTextInTheirEncodingAreNoText) {
  for (const char* bytes : {"caf\xE9", "\xC0\xAF", "\xED\xA0\x80", "\xE2\x82", "\xF4\x90\x80\x80"}) {
    toolPrints(bytes);
    EXPECT_EQ(TGTask::stringFromTask(kTool, std::nullopt, StringEncoding::utf8, nullptr), std::nullopt);
    EXPECT_THAT(TGTask::dataFromTask(kTool, std::nullopt, nullptr), Optional(std::string(bytes)));
  }
  toolPrints("\x7F plain\n");
  EXPECT_THAT(TGTask::stringFromTask(kTool, std::nullopt), Optional(std::string("\x7F plain\n")));
}

class TGTaskRefusalTest : public TGTaskTest, public ::testing::WithParamInterface<const char*> {
 protected:
  TGTaskRefusalTest() {
    fakes_.files.makeFolder("/folder");
    fakes_.files.makeFolder("/Applications/Tool.app");
    fakes_.files.makeFile("/file");
    fakes_.files.denied.insert({"/file", platform::Access::execute});
    fakes_.clock.holdOtherThreads();
  }

  /// One message on the console and in the log for each of that many attempts, and nothing was run. The
  /// timers of those under a time-out have gone to sleep.
  void expectRefusals(std::size_t count, std::size_t timers) {
    EXPECT_EQ(fakes_.clock.waitForSleepers(timers).size(), timers);
    const std::string message = std::string("Error: ") + GetParam() + " is not executable";
    EXPECT_EQ(messages(), std::vector<std::string>(count, message));
    EXPECT_EQ(logEntries(), std::vector<std::string>(count, message));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(fakes_.subprocesses.created, IsEmpty());
  }
};

TEST_P(TGTaskRefusalTest, RunningFails) {
  EXPECT_FALSE(TGTask::runTask(GetParam(), std::nullopt));
  TGTask::runTask(GetParam(), std::nullopt, 5s);
  TGTask::runTaskAndReturn(GetParam(), std::nullopt);
  expectRefusals(3, 1);
}

TEST_P(TGTaskRefusalTest, TheTerminationCodeIsMinusOne) {
  EXPECT_EQ(TGTask::terminationCodeFromTask(GetParam(), std::nullopt), -1);
  EXPECT_EQ(TGTask::terminationCodeFromTask(GetParam(), std::nullopt, 5s), -1);
  expectRefusals(2, 1);
}

TEST_P(TGTaskRefusalTest, ThereIsNoDataAndTheTextIsEmpty) {
  EXPECT_EQ(TGTask::dataFromTask(GetParam(), std::nullopt, nullptr), std::nullopt);
  EXPECT_EQ(TGTask::dataFromTask(GetParam(), std::nullopt, 5s), std::nullopt);
  EXPECT_THAT(TGTask::stringFromTask(GetParam(), std::nullopt), Optional(std::string()));
  EXPECT_THAT(TGTask::stringFromTask(GetParam(), std::nullopt, 5s), Optional(std::string()));
  expectRefusals(4, 2);
}

INSTANTIATE_TEST_SUITE_P(Paths, TGTaskRefusalTest,
                         ::testing::Values("/folder", "/Applications/Tool.app", "/file", "/missing"));

TEST_F(TGTaskTest, APathWithPercentSignsIsReportedAsItIs) {
  EXPECT_FALSE(TGTask::runTask("/100%@ %d", std::nullopt));
  EXPECT_THAT(messages(), ElementsAre("Error: /100%@ %d is not executable"));
  EXPECT_THAT(logEntries(), ElementsAre("Error: /100%@ %d is not executable"));
}

TEST_F(TGTaskTest, TimeoutsAreCutToWholeSeconds) {
  fakes_.clock.holdOtherThreads();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::pair<double, std::chrono::nanoseconds>> table = {{5.9, 5s},
                                                                          {5.0, 5s},
                                                                          {0.9, 0s},
                                                                          {-1.5, -1s},
                                                                          {nan, 0s},
                                                                          {1e300, 1000000000s},
                                                                          {-HUGE_VAL, -1000000000s}};
  std::vector<std::chrono::nanoseconds> expected;
  for (const auto& [seconds, whole] : table) {
    TGTask::runTask(kTool, std::nullopt, TGTask::Interval(seconds));
    expected.push_back(whole);
    EXPECT_EQ(fakes_.clock.waitForSleepers(expected.size()), expected);
  }
}

TEST_F(TGTaskTest, TheStaticFormsWithATimeoutAnswerAsThoseWithout) {
  fakes_.clock.holdOtherThreads();
  fakes_.subprocesses.runs[kTool] = {.status = 7, .output = "out"};
  TGTask::runTask(kTool, {{"a"}}, 5s);
  EXPECT_EQ(TGTask::terminationCodeFromTask(kTool, {{"b"}}, 5s), 7);
  EXPECT_THAT(TGTask::dataFromTask(kTool, {{"c"}}, 5s), Optional(std::string("out")));
  EXPECT_THAT(TGTask::stringFromTask(kTool, {{"d"}}, 5s), Optional(std::string("out")));
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool a", "run /usr/bin/tool b", "run /usr/bin/tool c",
                                   "run /usr/bin/tool d"));
  fakes_.clock.waitForSleepers(4);
}

TEST_F(TGTaskTest, AToolThatOutlastsItsTimeoutIsTerminatedWithBothMessages) {
  toolOutlastsItsTimeout();
  const auto task = TGTask::create();
  EXPECT_EQ(task->terminationCodeFromTimedTask(kTool, {{"x"}}, 5s), SIGTERM);
  EXPECT_EQ(task->theTask(), nullptr);
  fakes_.mainThread.waitUntilPerformed(1);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool x", "terminate /usr/bin/tool"));
  EXPECT_THAT(messages(), ElementsAre("Task timed out. Terminating..."));
  EXPECT_THAT(logEntries(), ElementsAre("Task /usr/bin/tool timed out. Terminating..."));
}

TEST_F(TGTaskTest, ATimedRunWithoutAResultIsTerminatedToo) {
  toolOutlastsItsTimeout();
  const auto task = TGTask::create();
  task->runTimedTask(kTool, std::nullopt, 5s);
  fakes_.mainThread.waitUntilPerformed(1);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
}

/// The timer is over before the tool has been launched as often as not.
TEST_F(TGTaskTest, ATimeoutOfLessThanASecondMissesNoTool) {
  fakes_.clock.holdOtherThreads();
  fakes_.clock.wakeOtherThreads();
  fakes_.subprocesses.runs[kTool] = {.runsUntilTerminated = true};
  for (int run = 0; run < 200; ++run) {
    EXPECT_EQ(TGTask::create()->terminationCodeFromTimedTask(kTool, std::nullopt, TGTask::Interval(0.9)),
              SIGTERM);
  }
  fakes_.mainThread.waitUntilPerformed(200);  // the timers stand on what ends with this test
}

TEST_F(TGTaskTest, ACaptureThatTimesOutYieldsWhatWasRead) {
  toolOutlastsItsTimeout("half of it");
  const auto task = TGTask::create();
  EXPECT_THAT(task->dataFromTimedTask(kTool, std::nullopt, 5s), Optional(std::string("half of it")));
  fakes_.mainThread.waitUntilPerformed(1);
  EXPECT_THAT(messages(), ElementsAre("Task timed out. Terminating..."));
}

TEST_F(TGTaskTest, ATimerThatWakesAfterItsRunDoesNothing) {
  fakes_.clock.holdOtherThreads();
  fakes_.mainThread.recordsWork = true;
  fakes_.subprocesses.runs[kTool].status = 4;
  const auto task = TGTask::create();
  EXPECT_EQ(task->terminationCodeFromTimedTask(kTool, std::nullopt, 5s), 4);
  EXPECT_EQ(task->theTask(), nullptr);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool"));
  fakes_.clock.waitForSleepers(1);
  fakes_.clock.wakeOtherThreads();
  fakes_.mainThread.waitUntilPerformed(1);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "main (wait)"));
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGTaskTest, TheTimerHoldsTheInstanceForTheWholeInterval) {
  fakes_.clock.holdOtherThreads();
  auto task = TGTask::create();
  const std::weak_ptr<TGTask> left = task;
  task->runTimedTask(kTool, std::nullopt, 5s);
  fakes_.clock.waitForSleepers(1);
  task.reset();
  EXPECT_FALSE(left.expired());
  fakes_.clock.wakeOtherThreads();
  fakes_.mainThread.waitUntilPerformed(1);
  while (!left.expired()) std::this_thread::yield();
}

TEST_F(TGTaskTest, ATimedRunThatCannotBeLaunchedLeavesNoTask) {
  fakes_.clock.holdOtherThreads();
  fakes_.subprocesses.runs[kTool].launchFailure = foundation::Exception("NSInvalidArgumentException", "no");
  const auto task = TGTask::create();
  EXPECT_THROW(task->runTimedTask(kTool, std::nullopt, 5s), foundation::Exception);
  EXPECT_EQ(task->theTask(), nullptr);
  fakes_.clock.waitForSleepers(1);
}

TEST_F(TGTaskTest, AToolIsRunWithoutATimeoutWhereNoTimerCanBeStarted) {
  fakes_.subprocesses.runs[kTool].status = 3;
  const auto task = TGTask::create();
  TGLog::appendLog("before");  // the log's own thread runs
  {
    const support::NoMoreThreads limit;
    EXPECT_EQ(task->terminationCodeFromTimedTask(kTool, {{"x"}}, 5s), 3);
  }
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool x"));
  EXPECT_THAT(logEntries(),
              ElementsAre("before", ::testing::StartsWith("Exception in -[TGTask setupTimeout:]. ")));
}

TEST_F(TGTaskTest, ATimedRunThatIsRefusedForgetsTheTaskOfTheRunBefore) {
  fakes_.clock.holdOtherThreads();
  const auto task = TGTask::create();
  task->setTheTask(fakes_.subprocesses.create({.launchPath = kTool}));
  EXPECT_EQ(task->terminationCodeFromTimedTask("/missing", std::nullopt, 5s), -1);
  EXPECT_EQ(task->theTask(), nullptr);
  fakes_.clock.waitForSleepers(1);
}

TEST_F(TGTaskTest, SetupTimeoutSleepsAndThenAsksTheMainThreadAndWaits) {
  fakes_.mainThread.recordsWork = true;
  TGTask::create()->setupTimeout(5s);
  EXPECT_THAT(calls(), ElementsAre("sleep 5s", "main (wait)"));
}

TEST_F(TGTaskTest, TimeoutLeavesATaskAloneThatDoesNotRun) {
  const auto task = TGTask::create();
  task->timeout();
  task->setTheTask(fakes_.subprocesses.create({.launchPath = kTool}));
  task->timeout();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGTaskTest, TimeoutTerminatesTheTaskThatWasSet) {
  const auto task = TGTask::create();
  task->setTheTask(fakes_.subprocesses.create({.launchPath = kTool}));
  task->theTask()->launch();
  task->timeout();
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
}

/// What a delegate got.
struct Delivery {
  std::string data;
  bool hasObject = false;
  bool operator==(const Delivery&) const = default;
};

void PrintTo(const Delivery& delivery, std::ostream* stream) {
  *stream << "\"" << delivery.data << "\"" << (delivery.hasObject ? " with an object" : "");
}

class TGTaskAsyncTest : public TGTaskTest {
 protected:
  TGTask::Delegate recording() {
    return [this](const std::string& data, TGTask& task, const std::any* object) {
      const std::scoped_lock lock(mutex_);
      deliveries_.push_back({data, object != nullptr});
      if (object != nullptr) {
        EXPECT_EQ(std::any_cast<std::string>(*object), "the caller's");
      }
      EXPECT_EQ(&task, expectedTask_);
      thread_ = std::this_thread::get_id();
    };
  }

  void waitForTheEnd() {
    while (task_->theTask()) std::this_thread::yield();
  }

  std::vector<Delivery> deliveries() {
    const std::scoped_lock lock(mutex_);
    return deliveries_;
  }

  std::thread::id deliveringThread() {
    const std::scoped_lock lock(mutex_);
    return thread_;
  }

  std::shared_ptr<TGTask> task_ = TGTask::create();

 private:
  std::mutex mutex_;
  const TGTask* expectedTask_ = task_.get();
  std::vector<Delivery> deliveries_;
  std::thread::id thread_;
};

TEST_F(TGTaskAsyncTest, OutputIsDeliveredOnAnotherThreadAndEndsWithAnEmptyPiece) {
  toolPrints("hello");
  fakes_.subprocesses.recordsPipes = true;
  task_->asyncDataFromTask(kTool, {{"x"}}, recording());
  waitForTheEnd();
  EXPECT_THAT(deliveries(), ElementsAre(Delivery{"hello"}, Delivery{""}));
  EXPECT_NE(deliveringThread(), std::this_thread::get_id());
  EXPECT_THAT(calls(),
              ElementsAre("run /usr/bin/tool x", "read output /usr/bin/tool", "read output /usr/bin/tool",
                          "close output /usr/bin/tool", "terminate /usr/bin/tool"));
}

TEST_F(TGTaskAsyncTest, OnlyOutputIsRead) {
  task_->asyncDataFromTask(kTool, std::nullopt, recording());
  waitForTheEnd();
  EXPECT_EQ(onlyChild(fakes_).standardInput, Stream::inherited);
  EXPECT_EQ(onlyChild(fakes_).standardOutput, Stream::pipe);
  EXPECT_EQ(onlyChild(fakes_).standardError, Stream::nullDevice);
  EXPECT_THAT(onlyChild(fakes_).arguments, IsEmpty());
}

TEST_F(TGTaskAsyncTest, AToolThatPrintsNothingMakesExactlyOneDelivery) {
  task_->asyncDataFromTask(kTool, std::nullopt, recording());
  waitForTheEnd();
  EXPECT_THAT(deliveries(), ElementsAre(Delivery{""}));
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
}

TEST_F(TGTaskAsyncTest, TheCallersObjectComesWithEveryDelivery) {
  toolPrints("hello");
  task_->asyncDataFromTask(kTool, std::nullopt, recording(), std::string("the caller's"));
  waitForTheEnd();
  EXPECT_THAT(deliveries(), ElementsAre(Delivery{"hello", true}, Delivery{"", true}));
}

TEST_F(TGTaskAsyncTest, WithoutADelegateTheRunEndsAllTheSame) {
  toolPrints("hello");
  task_->asyncDataFromTask(kTool, std::nullopt, nullptr);
  waitForTheEnd();
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
}

TEST_F(TGTaskAsyncTest, ThePathIsNotChecked) {
  task_->asyncDataFromTask("/missing", std::nullopt, recording());
  waitForTheEnd();
  EXPECT_THAT(calls(), ElementsAre("run /missing", "terminate /missing"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGTaskAsyncTest, AToolThatCannotBeLaunchedIsLoggedAndEndsEmpty) {
  fakes_.subprocesses.runs[kTool].launchFailure = foundation::Exception("NSInvalidArgumentException", "no");
  task_->asyncDataFromTask(kTool, std::nullopt, recording());
  waitForThreadsOf(task_);
  EXPECT_THAT(deliveries(), ElementsAre(Delivery{""}));
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool"));
  EXPECT_THAT(logEntries(),
              ElementsAre("Exception in -[TGTask launchAsyncTask]. NSInvalidArgumentException - no."));
}

TEST_F(TGTaskAsyncTest, ADelegateThatThrowsIsLoggedAndEndsTheRun) {
  toolPrints("hello");
  const auto throwing = [](const std::string&, TGTask&, const std::any*) { throw std::runtime_error("oh"); };
  task_->asyncDataFromTask(kTool, std::nullopt, throwing);
  waitForTheEnd();
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
  EXPECT_THAT(logEntries(), ElementsAre("Exception in -[TGTask launchAsyncTask]. NSGenericException - oh."));
}

TEST_F(TGTaskAsyncTest, ADelegateCanEndTheRun) {
  toolPrints("hello");
  std::atomic<int> count = 0;
  const auto ending = [&](const std::string&, TGTask& task, const std::any*) {
    ++count;
    task.terminateAsyncTask();
  };
  task_->asyncDataFromTask(kTool, std::nullopt, ending);
  waitForThreadsOf(task_);
  EXPECT_EQ(count, 1);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool", "terminate /usr/bin/tool"));
}

TEST_F(TGTaskAsyncTest, AnInstanceCanBeUsedAgain) {
  toolPrints("first");
  task_->asyncDataFromTask(kTool, std::nullopt, recording(), std::string("the caller's"));
  waitForTheEnd();
  fakes_.subprocesses.runs[kDate].output = "second";
  task_->asyncDataFromTask(kDate, std::nullopt, recording());
  waitForTheEnd();
  EXPECT_THAT(deliveries(),
              ElementsAre(Delivery{"first", true}, Delivery{"", true}, Delivery{"second"}, Delivery{""}));
}

TEST_F(TGTaskAsyncTest, LaunchingWithoutATaskIsLogged) {
  task_->launchAsyncTask();
  EXPECT_THAT(logEntries(), ElementsAre("Unable to launch async task - no task set"));
  EXPECT_THAT(calls(), IsEmpty());
}

}  // namespace
