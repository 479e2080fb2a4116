// The log where somebody has put something else, more than one program, and many threads.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "tests/diagnostics/LogFixture.h"
#include "tests/hardening/SupervisedRun.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using support::TemporaryFolder;
using testing::HasSubstr;

constexpr const char* kSecret = "root's own, and nobody's to change\n";

std::string relative(int number) {
  return "Library/Logs/Vordenworks/Quillmend." + std::to_string(number) + ".log";
}

enum class Obstacle { linkToFile, linkToFolder, linkToNothing, fifo, folder };

struct Planted {
  Obstacle obstacle;
  int generation;  ///< 0 for the folder of the logs
};

/// A user's home in which root logs, and a file of root's elsewhere.
class ObstacleTest : public testing::TestWithParam<Planted> {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    for (const int number : {2, 3, 4}) static_cast<void>(home_.file(relative(number), "older\n"));
    ASSERT_EQ(::chown((home_ / "Library/Logs/Vordenworks").c_str(), kUser, kUser), 0);
    ASSERT_EQ(::chown((home_ / "Library/Logs").c_str(), kUser, kUser), 0);
    const std::string place =
        GetParam().generation == 0 ? "Library/Logs/Vordenworks" : relative(GetParam().generation);
    std::filesystem::remove_all(home_ / place);
    plant(home_ / place);
  }

  void plant(const std::string& path) {
    switch (GetParam().obstacle) {
      case Obstacle::linkToFile:
        std::filesystem::create_symlink(secret_, path);
        break;
      case Obstacle::linkToFolder:
        std::filesystem::create_symlink(outside_.path(), path);
        break;
      case Obstacle::linkToNothing:
        std::filesystem::create_symlink(outside_ / "made through a link", path);
        break;
      case Obstacle::fifo:
        ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0);
        break;
      case Obstacle::folder:
        std::filesystem::create_directory(path);
        break;
    }
    ASSERT_EQ(::lchown(path.c_str(), kUser, kUser), 0);
  }

  static constexpr uid_t kUser = 4712;

  TemporaryFolder outside_;
  std::string secret_ = outside_.file("secret", kSecret);
  TemporaryFolder home_;
};

std::string nameOf(const testing::TestParamInfo<Planted>& planted) {
  constexpr std::array<const char*, 5> kObstacles = {"LinkToFile", "LinkToFolder", "LinkToNothing", "Fifo",
                                                     "Folder"};
  const int generation = planted.param.generation;
  const std::string place = generation == 0 ? "Logs" : "Generation" + std::to_string(generation);
  return std::string(kObstacles.at(static_cast<std::size_t>(planted.param.obstacle))) + "For" + place;
}

std::vector<Planted> everyObstacleEverywhere() {
  std::vector<Planted> all;
  for (const auto obstacle : {Obstacle::linkToFile, Obstacle::linkToFolder, Obstacle::linkToNothing,
                              Obstacle::fifo, Obstacle::folder}) {
    for (const int generation : {0, 1, 2, 5}) all.push_back({obstacle, generation});
  }
  return all;
}

}  // namespace

TEST_P(ObstacleTest, RootNeitherWritesElsewhereNorWaits) {
  const auto run = support::runProgram(
      {"/usr/bin/timeout", "20", LOG_PROGRAM, home_.path(), "root", "3", "append", "new", "append", "new"});
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(support::contentOf(secret_), kSecret);
  struct stat status {};
  ASSERT_EQ(::stat(secret_.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_nlink, 1U);
  const auto beside = std::distance(std::filesystem::directory_iterator(outside_.path()), {});
  EXPECT_EQ(beside, 1) << "nothing is made on the other side of a link";
}

INSTANTIATE_TEST_SUITE_P(Places, ObstacleTest, testing::ValuesIn(everyObstacleEverywhere()), nameOf);

namespace {

/// Counts the lines of each writer, which must be in their order and whole; dates are not looked at.
std::map<std::string, int> linesByWriter(const std::string& log) {
  std::map<std::string, int> next;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t begin = line.find(" - ");
    const std::size_t middle = line.find(" line ");
    if (middle == std::string::npos) continue;
    const std::string writer = line.substr(begin + 3, middle - begin - 3);
    EXPECT_EQ(line.substr(middle + 6), std::to_string(next[writer])) << line;
    ++next[writer];
  }
  return next;
}

class TwoProgramsTest : public testing::Test {
 protected:
  [[nodiscard]] std::string everything() const {
    std::string all;
    for (int number = 5; number >= 1; --number) all += home_.content(relative(number));
    return all;
  }
  TemporaryFolder home_;
};

}  // namespace

TEST_F(TwoProgramsTest, OneLogTakesTheLinesOfBothWhole) {
  static_cast<void>(home_.file(relative(1)));
  ChildProcess one({LOG_PROGRAM, home_.path(), "one", "3000", "append", "append"});
  ChildProcess other({LOG_PROGRAM, home_.path(), "other", "3000", "append", "append"});
  const auto isDone = [](ChildProcess& program) { return program.line().empty(); };  // they say nothing
  EXPECT_TRUE(isDone(one));
  EXPECT_TRUE(isDone(other));
  std::istringstream lines(home_.content(relative(1)));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, testing::ContainsRegex("^[-0-9]+ [0-9:]+ [+]0000 - (one|other) line [0-9]+$"));
  }
  EXPECT_EQ(count, 12000);
}

TEST_F(TwoProgramsTest, WhatOneHasOpenGoesOnInItWhenTheOtherBegins) {
  ASSERT_EQ(::mkfifo((home_ / "go").c_str(), 0600), 0);
  const platform::UniqueDescriptor go(::open((home_ / "go").c_str(), O_RDWR | O_CLOEXEC));
  std::vector<std::unique_ptr<ChildProcess>> programs;
  for (const char* const name : {"one", "two", "three"}) {
    programs.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{
        LOG_PROGRAM, home_.path(), name, "1000", "new", "append", "wait", "append"}));
    ASSERT_EQ(programs.back()->line(), "ready");
  }
  ASSERT_EQ(::write(go.get(), "123", 3), 3);
  for (const auto& program : programs) EXPECT_EQ(program->line(), "") << "the end";
  std::map<std::string, int> counts;
  std::istringstream lines(everything());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t middle = line.find(" line ");
    if (middle != std::string::npos)
      ++counts[line.substr(line.find(" - ") + 3, middle - line.find(" - ") - 3)];
  }
  EXPECT_THAT(counts, testing::UnorderedElementsAre(testing::Pair("one", 2000), testing::Pair("two", 2000),
                                                    testing::Pair("three", 2000)));
}

namespace {

constexpr int kThreads = 8;

/// Each thread's of so many lines in all, or of a million with QUILLMEND_LONG_TESTS.
int linesOfEach(int usual) {
  return (std::getenv("QUILLMEND_LONG_TESTS") != nullptr ? 1'000'000 : usual) / kThreads;
}

void expectAllInOrder(const std::string& everything, int linesOfEach) {
  const auto counts = linesByWriter(everything);
  EXPECT_EQ(counts.size(), std::size_t{kThreads});
  for (const auto& [writer, count] : counts) EXPECT_EQ(count, linesOfEach) << writer;
}

/// Eight threads; what a rotation drops is collected before it goes.
class ManyLinesTest : public LogFixture {
 protected:
  void SetUp() override {
    fake.files.beforeChange = [this](const std::string& change,
                                     const std::string& path) -> std::optional<foundation::Error> {
      if (change == "remove" && path == generation(5)) collected_ += content(path);
      return std::nullopt;
    };
  }
  [[nodiscard]] std::string everything() {
    std::string all = collected_;
    for (int number = 5; number >= 1; --number) {
      if (fake.files.exists(generation(number))) all += content(generation(number));
    }
    return all;
  }

 private:
  std::string collected_;
};

}  // namespace

TEST_F(ManyLinesTest, EightThreadsLoseNoneAndKeepTheirOrder) {
  const int lines = linesOfEach(support::kIsSanitized ? 40'000 : 100'000);
  TGLog::createNewLog("Quillmend");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, lines] {
      for (int line = 0; line < lines; ++line) TGLog::appendLog("thread %i line %i", thread, line);
    });
  }
  for (std::thread& thread : threads) thread.join();
  TGLog::finishWriting();
  expectAllInOrder(everything(), lines);
}

namespace {

/// The same with the files of this computer, which a program of the test's writes.
class ManyLinesOnDiskTest : public TwoProgramsTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }

  /// Collects the oldest generation each time when it is about to be dropped.
  void write(int lines) {
    const hardening::OnCall collect = [this](const hardening::Call& call) {
      if (call.number == SYS_unlinkat) {
        dropped_ += home_.content(relative(5));
        ++drops_;
      }
      return hardening::kProceed;
    };
    const auto finished =
        hardening::run({LOG_PROGRAM, home_.path(), "thread", std::to_string(lines), "new", "threads"},
                       [] { ::dup2(STDERR_FILENO, STDOUT_FILENO); }, collect, {SYS_getppid, SYS_unlinkat});
    EXPECT_EQ(finished.exitStatus, 0);
    EXPECT_EQ(finished.errors, "");
  }

  std::string dropped_;
  int drops_ = 0;
};

}  // namespace

TEST_F(ManyLinesOnDiskTest, EightThreadsLoseNoneAndKeepTheirOrderThroughRotations) {
  const int lines = linesOfEach(support::kIsSanitized ? 60'000 : 100'000);
  write(lines);
  expectAllInOrder(dropped_ + everything(), lines);
  EXPECT_GE(drops_, 1);
  for (const int number : {1, 2, 3, 4, 5}) {
    EXPECT_THAT(home_.content(relative(number)), testing::StartsWith("Log started: "));
  }
}
