#include "helpers/KillTool.h"

#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <tuple>

#include "tests/helpers/TestVolume.h"
#include "tests/helpers/ToolProcess.h"
#include "tests/support/FailingCall.h"
#include "tests/support/RunningProgram.h"

namespace helpers {
namespace {

using platform::ProcessInfo;
using std::chrono::milliseconds;
using support::RunningProgram;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kDaemon = "usr/sbin/qmasterd";
constexpr const char* kQueue = "usr/sbin/qmasterqd";
constexpr const char* kAgent = "usr/sbin/qmasterca";
constexpr const char* kClient = "Applications/Compressor.app/Contents/MacOS/Compressor";

class KillToolTest : public ::testing::Test {
 protected:
  KillToolTest() {
    settings_.rootFolder = volume_.path("").substr(0, volume_.path("").size() - 1);
    settings_.ask = milliseconds(3000);
  }

  std::string install(const std::string& place) {
    std::filesystem::create_directories(std::filesystem::path(volume_.path(place)).parent_path());
    std::filesystem::copy_file(TARGET_PROGRAM, volume_.path(place),
                               std::filesystem::copy_options::overwrite_existing);
    return volume_.path(place);
  }
  RunningProgram& start(const std::string& place, const std::vector<std::string>& arguments = {"polite"}) {
    programs_.push_back(std::make_unique<RunningProgram>(install(place), arguments));
    return *programs_.back();
  }
  ExitStatus run() {
    KillTool tool(platform::ProcessTable(), settings_, report_);
    tool.onSignal(onSignal_);
    return tool.run({});
  }

  TestVolume volume_;
  RecordedReport report_;
  KillTool::Settings settings_;
  KillTool::OnSignal onSignal_;
  std::vector<std::unique_ptr<RunningProgram>> programs_;
};

bool endedPolitely(int status) {
  return WIFEXITED(status) && WEXITSTATUS(status) == 7;
}
bool wasKilled(int status) {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

/// Also one that its new parent has not yet waited for.
bool hasVanished(pid_t pid) {
  const auto process = platform::ProcessTable().process(pid);
  return !process || process->state == 'Z';
}

TEST_F(KillToolTest, AsksEveryProgramOfQmasterToEnd) {
  for (const char* place :
       {kDaemon, kQueue, kAgent, kClient, "Library/Application Support/Apple Qmaster/controller",
        ("Library/PreferencePanes/Apple "
         "Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app/Contents/MacOS/x")}) {
    start(place);
  }
  EXPECT_EQ(run(), ExitStatus::done) << report_.text();
  for (const auto& program : programs_) EXPECT_TRUE(endedPolitely(program->wait()));
}

TEST_F(KillToolTest, ThePreferencesToolAndStrangersOfTheSameNameLive) {
  start("usr/sbin/qmasterprefs");
  start("elsewhere/qmasterd");
  start("usr/bin/Compressor");
  EXPECT_EQ(run(), ExitStatus::done);
  for (const auto& program : programs_) EXPECT_FALSE(program->hasEnded());
}

TEST_F(KillToolTest, ClientsGoFirstAndTheDaemonLast) {
  for (const char* place : {kDaemon, kQueue, kAgent, kClient}) start(place);
  std::vector<std::string> asked;
  onSignal_ = [&](const ProcessInfo& process, int signal) {
    if (signal == SIGTERM) asked.push_back(std::filesystem::path(process.executable).filename());
  };
  EXPECT_EQ(run(), ExitStatus::done);
  EXPECT_THAT(asked, ElementsAre("Compressor", "qmasterca", "qmasterqd", "qmasterd"));
}

TEST_F(KillToolTest, WhoDoesNotEndIsEndedByForce) {
  settings_.ask = milliseconds(50);
  RunningProgram& stubborn = start(kDaemon, {"stubborn"});
  EXPECT_EQ(run(), ExitStatus::done) << report_.text();
  EXPECT_TRUE(wasKilled(stubborn.wait()));
}

TEST_F(KillToolTest, AClientThatLingersDoesNotHoldUpTheDaemonsEnd) {
  RunningProgram& client = start(kClient, {"stubborn"});
  RunningProgram& daemon = start(kDaemon);
  std::map<int, std::chrono::steady_clock::time_point> first;  // by signal
  onSignal_ = [&](const ProcessInfo& process, int signal) {
    if (process.pid == daemon.pid() || signal == SIGKILL) {
      first.emplace(signal, std::chrono::steady_clock::now());
    }
    if (signal == SIGKILL) {
      EXPECT_EQ(process.pid, client.pid());
      EXPECT_TRUE(daemon.hasEnded());
    }
  };
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run(), ExitStatus::done) << report_.text();
  ASSERT_TRUE(first.contains(SIGTERM) && first.contains(SIGKILL));
  EXPECT_LT(first[SIGTERM] - begin, milliseconds(1000));
  EXPECT_GE(first[SIGKILL] - begin, settings_.ask) << "who lingers still has its time";
  EXPECT_TRUE(wasKilled(client.wait()));
  EXPECT_TRUE(endedPolitely(daemon.wait()));
}

TEST_F(KillToolTest, AllWaitsTogetherAreBounded) {
  settings_.ask = milliseconds(200);
  for (const char* place : {kDaemon, kQueue, kAgent, kClient}) start(place, {"stubborn"});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run(), ExitStatus::done);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(6000));
}

TEST_F(KillToolTest, AStoppedProcessCanStillEndPolitely) {
  RunningProgram& stopped = start(kDaemon);
  kill(stopped.pid(), SIGSTOP);
  EXPECT_EQ(run(), ExitStatus::done);
  EXPECT_TRUE(endedPolitely(stopped.wait()));
}

TEST_F(KillToolTest, AProgramWhoseFileIsGoneOrReplacedIsStopped) {
  RunningProgram& removed = start(kDaemon);
  RunningProgram& replaced = start(kQueue);
  std::filesystem::remove(volume_.path(kDaemon));
  std::filesystem::remove(volume_.path(kQueue));
  install(kQueue);
  EXPECT_EQ(run(), ExitStatus::done);
  EXPECT_TRUE(endedPolitely(removed.wait()));
  EXPECT_TRUE(endedPolitely(replaced.wait()));
}

TEST_F(KillToolTest, AChildThatATargetStartsMeanwhileIsStoppedToo) {
  settings_.ask = milliseconds(500);
  RunningProgram& parent = start(kDaemon, {"parent"});
  std::set<pid_t> asked;
  onSignal_ = [&](const ProcessInfo& process, int) { asked.insert(process.pid); };
  EXPECT_EQ(run(), ExitStatus::done) << report_.text();
  EXPECT_TRUE(wasKilled(parent.wait()));
  ASSERT_EQ(asked.size(), 2U);
  for (const pid_t pid : asked) EXPECT_TRUE(hasVanished(pid));
}

TEST_F(KillToolTest, ADaemonStartedFromOutsideMeanwhileIsSpared) {
  start(kClient);
  onSignal_ = [this](const ProcessInfo&, int) {
    if (programs_.size() == 1) start(kDaemon);
  };
  EXPECT_EQ(run(), ExitStatus::done) << report_.text();
  ASSERT_EQ(programs_.size(), 2U);
  EXPECT_TRUE(endedPolitely(programs_[0]->wait()));
  EXPECT_FALSE(programs_[1]->hasEnded());
}

TEST_F(KillToolTest, WhoStartsItselfAgainForEverIsReportedInTheEnd) {
  RunningProgram first(install(kDaemon), {"reborn"}, [] { setpgid(0, 0); });
  const pid_t group = first.pid();
  int asked = 0;
  onSignal_ = [&asked](const ProcessInfo&, int signal) { asked += signal == SIGTERM ? 1 : 0; };
  EXPECT_EQ(run(), ExitStatus::failed);
  EXPECT_EQ(asked, settings_.rounds);
  EXPECT_THAT(report_.text(), HasSubstr("qmasterd: still running"));
  kill(-group, SIGKILL);
}

TEST_F(KillToolTest, ThoseThatItDescendsFromAreSpared) {
  const std::string killer = install("elsewhere/killer");
  RunningProgram& parent = start(kDaemon, {"run", killer, "kill", settings_.rootFolder});
  const int status = parent.wait();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(KillToolTest, AProgramOfThatPathInAnotherRootIsNotOurs) {
  QUILLMEND_NEEDS_ROOT();
  const std::string ours = install(kDaemon);
  const std::string other = install("elsewhere/qmasterd");
  RunningProgram stranger(ours, {"polite"}, [&] {
    if (unshare(CLONE_NEWNS) != 0 || mount(other.c_str(), ours.c_str(), nullptr, MS_BIND, nullptr) != 0)
      _exit(1);
  });
  EXPECT_EQ(run(), ExitStatus::done);
  EXPECT_FALSE(stranger.hasEnded());
}

TEST_F(KillToolTest, ItTakesNoArguments) {
  RunningProgram& daemon = start(kDaemon);
  KillTool tool(platform::ProcessTable(), settings_, report_);
  EXPECT_EQ(tool.run({"-9"}), ExitStatus::usage);
  EXPECT_EQ(tool.run({""}), ExitStatus::usage);
  EXPECT_FALSE(daemon.hasEnded());
}

TEST_F(KillToolTest, WhereNothingRunsItEndsAtOnce) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run(), ExitStatus::done);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, settings_.ask - milliseconds(500));
  EXPECT_EQ(report_.text(), "");
}

TEST_F(KillToolTest, WhoMayNotBeHeldOrSignalledIsReported) {
  start(kDaemon);
  for (const long call : {SYS_pidfd_open, SYS_pidfd_send_signal}) {
    support::FailingCall::run(call, EPERM, [this] {
      settings_.ask = milliseconds(50);
      settings_.force = milliseconds(50);
      EXPECT_EQ(run(), ExitStatus::failed);
      EXPECT_THAT(report_.text(), HasSubstr("Operation not permitted"));
    });
    EXPECT_FALSE(programs_[0]->hasEnded());
  }
}

TEST_F(KillToolTest, AskedToStopItSignalsNobodyElse) {
  settings_.ask = milliseconds(30000);
  start(kClient, {"stubborn"});
  start(kDaemon);
  ToolProcess::run([this] {
    RecordedReport report;
    KillTool tool(platform::ProcessTable(), settings_, report);
    int signals = 0;
    tool.onSignal([&signals](const ProcessInfo&, int) {
      ++signals;
      raise(SIGTERM);
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(tool.run({}), ExitStatus::failed);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, settings_.ask);
    EXPECT_EQ(signals, 2) << "asked to end, and to go on where it is stopped: the one in hand";
    EXPECT_THAT(report.text(), HasSubstr("qmasterd: still running"));
  });
  EXPECT_FALSE(programs_[1]->hasEnded());
}

TEST_F(KillToolTest, AProcessOfThatPathThatHasEndedAndIsNotWaitedForIsNothingToBeStopped) {
  RunningProgram& daemon = start(kDaemon);
  kill(daemon.pid(), SIGKILL);
  while (platform::ProcessTable().process(daemon.pid())->state != 'Z') std::this_thread::yield();
  int signals = 0;
  onSignal_ = [&signals](const ProcessInfo&, int) { ++signals; };
  EXPECT_EQ(run(), ExitStatus::done) << report_.text();
  EXPECT_EQ(signals, 0);
}

}  // namespace
}  // namespace helpers
