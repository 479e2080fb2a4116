#include "platform/posix/PosixFileOperations.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixMainThread.h"
#include "tests/support/AsUser.h"
#include "tests/support/NoMoreThreads.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using foundation::PropertyList;
using namespace std::string_literals;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr auto kLongestWait = 60s;

class PosixFileOperationsTest : public ::testing::Test {
 protected:
  struct Heard {
    FileOperationStage stage;
    OSStatus error;
    std::string currentItem;
    PropertyList status;
    bool onMainThread;
  };

  OSStatus begin(const std::string& source, const std::string& destination, const std::string& name,
                 std::chrono::nanoseconds interval = 1s) {
    return operations.copyObject(
        operation, source, destination, name, interval, [this](const FileOperationUpdate& update) {
          heard.push_back({update.stage, update.error, update.currentItem,
                           update.statusDictionary != nullptr ? *update.statusDictionary : PropertyList(),
                           mainThread.isCurrent()});
          if (whenHeard) whenHeard(update);
        });
  }
  /// Serves the main thread until the copy has ended.
  void serveToTheEnd() {
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    while (!hasEnded() && std::chrono::steady_clock::now() < end) mainThread.serveUntilReadable(-1, 1ms);
    ASSERT_TRUE(hasEnded());
  }
  [[nodiscard]] bool hasEnded() const {
    return !heard.empty() && heard.back().stage == FileOperationStage::complete;
  }
  [[nodiscard]] std::uint64_t number(const Heard& update, const char* key) const {
    const PropertyList* const value = update.status.find(key);
    if (value == nullptr || value->as<std::uint64_t>() == nullptr) return ~0ULL;
    return *value->as<std::uint64_t>();
  }
  static std::vector<std::string> namesIn(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path)) names.push_back(entry.path().filename());
    return names;
  }
  /// Takes longer than a few reports at the shortest interval.
  std::string makeLargeFile() const {
    const std::string block(1UL << 20, 'x');
    std::ofstream stream(folder / "large", std::ios::binary);
    for (int count = 0; count < 200; ++count) stream << block;
    return folder / "large";
  }

  TemporaryFolder folder;
  PosixMainThread mainThread;
  PosixClock clock{mainThread};
  PosixFileOperations operations{mainThread, clock};
  FileOperationRef operation = operations.create();
  std::function<void(const FileOperationUpdate&)> whenHeard;
  std::vector<Heard> heard;
};

TEST_F(PosixFileOperationsTest, AnItemIsCopiedUnderItsNewNameAndItsEndIsHeardOnTheMainThread) {
  folder.file("from/a", "content");
  fs::create_symlink("nowhere", folder / "from/link");
  std::filesystem::create_directories(folder / "to");
  EXPECT_EQ(operations.scheduleOnMainThread(operation), noErr);
  EXPECT_EQ(begin(folder / "from", folder / "to", "copy"), noErr);
  serveToTheEnd();
  ASSERT_THAT(heard, SizeIs(1));
  EXPECT_EQ(heard[0].error, noErr);
  EXPECT_TRUE(heard[0].onMainThread);
  EXPECT_EQ(folder.content("to/copy/a"), "content");
  EXPECT_EQ(fs::read_symlink(folder / "to/copy/link"), "nowhere");
  EXPECT_THAT(namesIn(folder / "to"), ElementsAre("copy"));
  EXPECT_EQ(operations.unscheduleFromMainThread(operation), noErr);
  EXPECT_EQ(operations.unscheduleFromMainThread(operation), paramErr) << "it is not scheduled any more";
}

TEST_F(PosixFileOperationsTest, WhileItRunsCountsAddUp) {
  const std::string source = makeLargeFile();
  const std::uint64_t size = fs::file_size(source);
  std::filesystem::create_directories(folder / "to");
  operations.scheduleOnMainThread(operation);
  ASSERT_EQ(begin(source, folder / "to", "copy", 0ns), noErr);
  serveToTheEnd();
  ASSERT_GT(heard.size(), 1U);
  std::uint64_t last = 0;
  for (std::size_t at = 0; at + 1 < heard.size(); ++at) {
    const Heard& update = heard[at];
    EXPECT_EQ(update.stage, FileOperationStage::running);
    EXPECT_TRUE(update.onMainThread);
    EXPECT_EQ(number(update, kFSOperationTotalBytesKey), size);
    EXPECT_EQ(number(update, kFSOperationTotalObjectsKey), 1U);
    const std::uint64_t done = number(update, kFSOperationBytesCompleteKey);
    EXPECT_GE(done, last);
    last = done;
    EXPECT_EQ(number(update, kFSOperationBytesRemainingKey), size - done);
    EXPECT_EQ(
        number(update, kFSOperationObjectsCompleteKey) + number(update, kFSOperationObjectsRemainingKey), 1U);
    EXPECT_GT(number(update, kFSOperationThroughputKey), 0U);
    EXPECT_EQ(update.currentItem, source);
    EXPECT_EQ(update.status.find(kFSOperationCurrentItemKey)->description(), source);
  }
  EXPECT_EQ(fs::file_size(folder / "to/copy"), size);
}

TEST_F(PosixFileOperationsTest, ReportsKeepTheirInterval) {
  const std::string source = makeLargeFile();
  std::filesystem::create_directories(folder / "to");
  operations.scheduleOnMainThread(operation);
  ASSERT_EQ(begin(source, folder / "to", "copy", 1h), noErr);
  serveToTheEnd();
  EXPECT_THAT(heard, SizeIs(1)) << "the end alone";
}

TEST_F(PosixFileOperationsTest, ACancelledCopyStopsWithinATenthOfASecondAndLeavesNothing) {
  const std::string source = makeLargeFile();
  std::filesystem::create_directories(folder / "to");
  std::chrono::nanoseconds shortest = 1h;
  // The machine may have other things to do: one of five is proof enough.
  for (int attempt = 0; attempt < 5 && shortest >= 100ms; ++attempt) {
    heard.clear();
    operation = operations.create();
    operations.scheduleOnMainThread(operation);
    std::chrono::nanoseconds cancelled = 0ns;
    whenHeard = [&](const FileOperationUpdate& update) {
      if (update.stage != FileOperationStage::running || cancelled != 0ns) return;
      cancelled = clock.uptime();
      EXPECT_EQ(operations.cancel(update.operation), noErr);
    };
    ASSERT_EQ(begin(source, folder / "to", "copy", 0ns), noErr);
    serveToTheEnd();
    ASSERT_NE(cancelled, 0ns) << "it has to run for a while";
    shortest = std::min(shortest, clock.uptime() - cancelled);
    EXPECT_EQ(heard.back().error, userCanceledErr);
    EXPECT_THAT(namesIn(folder / "to"), IsEmpty());
  }
  EXPECT_LT(shortest, 100ms);
  EXPECT_TRUE(fs::exists(source));
}

TEST_F(PosixFileOperationsTest, ACopyThatIsCancelledBeforeItHasBegunDoesNothing) {
  folder.file("a");
  EXPECT_EQ(operations.cancel(operation), paramErr) << "it does not run";
  EXPECT_EQ(operations.cancel(nullptr), paramErr);
}

/// Something happens when it is asked the first time, and each time.
class EventfulClock : public PosixClock {
 public:
  using PosixClock::PosixClock;
  std::chrono::nanoseconds uptime() override {
    if (atFirst) std::exchange(atFirst, nullptr)();
    if (each) each();
    return PosixClock::uptime();
  }
  std::function<void()> atFirst;
  std::function<void()> each;
};

TEST_F(PosixFileOperationsTest, ACopyThatIsCancelledAtItsBeginningCountsNothing) {
  std::string path = folder / "deep";
  for (int level = 0; level < 300; ++level) path += "/d";
  fs::create_directories(path);  // counting it would be an error
  EventfulClock eventful(mainThread);
  PosixFileOperations cancelling(mainThread, eventful);
  eventful.atFirst = [&] { EXPECT_EQ(cancelling.cancel(operation), noErr); };
  operations.scheduleOnMainThread(operation);
  OSStatus error = noErr;
  bool ended = false;
  ASSERT_EQ(cancelling.copyObject(operation, folder / "deep", folder.path(), "copy", 1s,
                                  [&](const FileOperationUpdate& update) {
                                    error = update.error;
                                    ended = true;
                                  }),
            noErr);
  const auto limit = std::chrono::steady_clock::now() + kLongestWait;
  while (!ended && std::chrono::steady_clock::now() < limit) mainThread.serveUntilReadable(-1, 1ms);
  EXPECT_EQ(error, userCanceledErr);
}

TEST_F(PosixFileOperationsTest, ErrorsArriveAtTheEndAndLeaveNothing) {
  folder.file("a", "new");
  folder.file("to/taken", "old");
  const std::vector<std::tuple<std::string, std::string, std::string, OSStatus>> table = {
      {folder / "missing", folder / "to", "copy", fnfErr},
      {folder / "a", folder / "to", "taken", dupFNErr},
      {folder / "a", folder / "nowhere", "copy", fnfErr},
      {folder / "a", folder / "a", "copy", fnfErr},
  };
  for (const auto& [source, destination, name, error] : table) {
    heard.clear();
    operation = operations.create();
    operations.scheduleOnMainThread(operation);
    ASSERT_EQ(begin(source, destination, name), noErr);
    serveToTheEnd();
    EXPECT_EQ(heard.back().error, error) << source << " " << destination;
  }
  EXPECT_EQ(folder.content("to/taken"), "old");
  EXPECT_THAT(namesIn(folder / "to"), ElementsAre("taken"));
}

/// All the time there is passes at once.
class HurriedClock : public PosixClock {
 public:
  using PosixClock::PosixClock;
  std::chrono::nanoseconds uptime() override { return asked++ == 0 ? 0s : 10s; }
  std::atomic<int> asked = 0;
};

TEST_F(PosixFileOperationsTest, NoSecondReportComesBeforeAnotherIntervalHasPassed) {
  const std::string source = makeLargeFile();
  HurriedClock hurried(mainThread);
  PosixFileOperations watched(mainThread, hurried);
  operations.scheduleOnMainThread(operation);
  std::size_t reports = 0;
  bool ended = false;
  ASSERT_EQ(watched.copyObject(operation, source, folder.path(), "copy", 1s,
                               [&](const FileOperationUpdate& update) {
                                 ended = update.stage == FileOperationStage::complete;
                                 if (!ended) ++reports;
                               }),
            noErr);
  const auto limit = std::chrono::steady_clock::now() + kLongestWait;
  while (!ended && std::chrono::steady_clock::now() < limit) mainThread.serveUntilReadable(-1, 1ms);
  EXPECT_EQ(reports, 1U);
  EXPECT_TRUE(ended);
}

TEST_F(PosixFileOperationsTest, TheirEndStopsWhatIsBeingCopied) {
  const std::string source = makeLargeFile();
  fs::create_directories(folder / "to");
  {
    PosixFileOperations shortLived(mainThread, clock);
    ASSERT_EQ(shortLived.copyObject(operation, source, folder / "to", "copy", 1s, {}), noErr);
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    while (namesIn(folder / "to").empty() && std::chrono::steady_clock::now() < end)
      std::this_thread::yield();
  }
  EXPECT_THAT(namesIn(folder / "to"), IsEmpty());
}

/// Comes back from queueing only when the work has been done.
class PatientMainThread : public PosixMainThread {
 public:
  void perform(std::function<void()> work, Wait wait) override {
    std::atomic<bool> done = false;
    PosixMainThread::perform(
        [&done, work = std::move(work)]() mutable {
          std::exchange(work, nullptr)();
          done = true;
        },
        wait);
    while (!done) std::this_thread::yield();
  }
};

TEST_F(PosixFileOperationsTest, WhatTheCallbackHoldsGoesOnTheMainThread) {
  folder.file("a", "content");
  PatientMainThread patient;
  PosixFileOperations patiently(patient, clock);
  std::atomic<int> gone = 0;
  std::atomic<int> goneOnMainThread = 0;
  std::shared_ptr<int> held(new int, [&](const int* number) {
    delete number;
    if (patient.isCurrent()) ++goneOnMainThread;
    ++gone;
  });
  patiently.scheduleOnMainThread(operation);
  ASSERT_EQ(patiently.copyObject(operation, folder / "a", folder.path(), "b", 1s,
                                 [held = std::move(held)](const FileOperationUpdate&) {}),
            noErr);
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (gone == 0 && std::chrono::steady_clock::now() < end) patient.serveUntilReadable(-1, 1ms);
  EXPECT_EQ(gone, 1);
  EXPECT_EQ(goneOnMainThread, 1);
}

/// Signals are for the threads that wait for them.
TEST_F(PosixFileOperationsTest, SignalsAreKeptFromTheThreadThatCopies) {
  const std::string source = makeLargeFile();
  std::atomic<int> open = 0;
  EventfulClock eventful(mainThread);
  PosixFileOperations watched(mainThread, eventful);
  eventful.each = [&] {
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    if (!mainThread.isCurrent() && sigismember(&blocked, SIGTERM) == 0) ++open;
  };
  ASSERT_EQ(watched.copyObject(operation, source, folder.path(), "copy", 1s, {}), noErr);
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (!fs::exists(folder / "copy") && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  EXPECT_EQ(open, 0);
  sigset_t mine;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mine);
  EXPECT_EQ(sigismember(&mine, SIGTERM), 0) << "of the thread that began it nothing has changed";
}

TEST_F(PosixFileOperationsTest, AFullVolumeIsAnErrorAndKeepsNothingOfTheCopy) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  const support::SmallVolume volume("1m");
  ASSERT_TRUE(volume.isMounted());
  folder.file("a", std::string(2UL << 20, 'x'));
  operations.scheduleOnMainThread(operation);
  ASSERT_EQ(begin(folder / "a", volume.path(), "copy"), noErr);
  serveToTheEnd();
  EXPECT_EQ(heard.back().error, dskFulErr);
  EXPECT_THAT(namesIn(volume.path()), IsEmpty());
}

TEST_F(PosixFileOperationsTest, WhatIsNoPathOrNameCannotBegin) {
  folder.file("a");
  EXPECT_EQ(begin("", folder.path(), "copy"), paramErr);
  EXPECT_EQ(begin(folder / "a", "", "copy"), paramErr);
  for (const auto& name : {""s, "."s, ".."s, "a/b"s, "a\0b"s})
    EXPECT_EQ(begin(folder / "a", folder.path(), name), paramErr);
  EXPECT_EQ(begin((folder / "a") + "\0x"s, folder.path(), "copy"), paramErr);
  EXPECT_EQ(operations.copyObject(nullptr, folder / "a", folder.path(), "copy", 1s, nullptr), paramErr);
  EXPECT_EQ(operations.scheduleOnMainThread(nullptr), paramErr);
  EXPECT_EQ(operations.scheduleOnMainThread(std::make_shared<FileOperation>()), paramErr)
      << "not of this service";
}

TEST_F(PosixFileOperationsTest, AnOperationBeginsOnce) {
  folder.file("a");
  operations.scheduleOnMainThread(operation);
  EXPECT_EQ(begin(folder / "a", folder.path(), "b"), noErr);
  EXPECT_EQ(begin(folder / "a", folder.path(), "c"), paramErr);
  serveToTheEnd();
  EXPECT_FALSE(fs::exists(folder / "c"));
}

TEST_F(PosixFileOperationsTest, WithoutAThreadItDoesNotBegin) {
  folder.file("a");
  operations.scheduleOnMainThread(operation);
  {
    const support::NoMoreThreads limit;
    EXPECT_EQ(begin(folder / "a", folder.path(), "b"), memFullErr);
  }
  mainThread.serveUntilReadable(-1, 1ms);
  EXPECT_THAT(heard, IsEmpty());
  EXPECT_FALSE(fs::exists(folder / "b"));
}

TEST_F(PosixFileOperationsTest, AnOperationThatIsNotScheduledCopiesAndIsNotHeardOf) {
  folder.file("a", "content");
  EXPECT_EQ(begin(folder / "a", folder.path(), "b"), noErr);
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (!fs::exists(folder / "b") && std::chrono::steady_clock::now() < end)
    mainThread.serveUntilReadable(-1, 1ms);
  EXPECT_EQ(folder.content("b"), "content");
  mainThread.serveUntilReadable(-1, 20ms);
  EXPECT_THAT(heard, IsEmpty());
}

}  // namespace
}  // namespace platform
