#include "platform/linux/BusAgent.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/linux/BusDesktopNotifications.h"
#include "platform/linux/BusDistributedNotifications.h"
#include "platform/posix/UniqueDescriptor.h"
#include "tests/platform/BusFixture.h"

using platform::BusAgent;
using platform::BusDesktopNotifications;
using platform::BusDistributedNotifications;
using platform::UniqueDescriptor;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace {

/// A socket that lets everybody connect and never says a word.
UniqueDescriptor silentBus(const std::string& path) {
  UniqueDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const auto* plain = reinterpret_cast<const sockaddr*>(&address);  // NOLINT: as bind(2) wants it
  if (::bind(socket.get(), plain, sizeof address) != 0 || ::listen(socket.get(), 8) != 0) return {};
  ::chmod(path.c_str(), 0777);
  return socket;
}

std::string statusLine(pid_t process, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return "";
}

bool isAlive(pid_t process) {
  const std::string state = statusLine(process, "State");
  return !state.empty() && !state.starts_with("Z") && !state.starts_with("X");
}

class BusAgentTest : public BusFixture {
 protected:
  static void post(BusAgent& agent, const std::string& name = "n") {
    BusDistributedNotifications(agent).post(name, std::nullopt);
  }
  /// A program in the agent's place: a script.
  [[nodiscard]] platform::BusAgentOptions impostor(const std::string& script) const {
    const std::string path = folder.path() + "/impostor";
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    ::chmod(path.c_str(), 0755);
    auto which = options();
    which.program = path;
    return which;
  }
};

TEST_F(BusAgentTest, NothingIsStartedBeforeThereIsSomethingToSay) {
  const auto bus = PrivateBus::session(folder);
  const BusAgent agent(options());
  EXPECT_THAT(agents(), IsEmpty());
}

TEST_F(BusAgentTest, OneAgentServesAllRequests) {
  const auto bus = PrivateBus::session(folder);
  BusAgent agent(options());
  post(agent);
  const auto first = agents();
  EXPECT_THAT(first, SizeIs(1));
  post(agent);
  EXPECT_EQ(agents(), first);
}

TEST_F(BusAgentTest, WithoutAnyBusARequestIsGivenUpSoonAndLeavesNoZombie) {
  BusAgent agent(options());
  EXPECT_LT(duration([&] { post(agent); }), 3s);
  EXPECT_TRUE(becomesTrue([] { return children().empty(); }));
}

TEST_F(BusAgentTest, WithoutItsProgramARequestIsGivenUpAtOnce) {
  auto which = options();
  which.program = folder.path() + "/absent";
  BusAgent agent(which);
  EXPECT_LT(duration([&] { post(agent); }), 500ms);
  EXPECT_THAT(children(), IsEmpty());
}

TEST_F(BusAgentTest, ABusThatNeverAnswersIsGivenUpAfterASecondAndTheAgentIsKilled) {
  const auto bus = silentBus(folder.path() + "/system");
  ASSERT_TRUE(bus);
  BusAgent agent(options());
  const auto took = duration([&] { post(agent); });
  EXPECT_GE(took, 900ms);
  EXPECT_LT(took, 3s);
  EXPECT_TRUE(becomesTrue([] { return children().empty(); }));
}

TEST_F(BusAgentTest, ABusThatStopsInTheMiddleIsGivenUpAfterASecondAndUsedAgainLater) {
  auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  BusAgent agent(options());
  post(agent, "before");
  EXPECT_THAT(listener->line(), HasSubstr("before"));
  bus.daemon().signal(SIGSTOP);
  EXPECT_LT(duration([&] { post(agent, "meanwhile"); }), 3s);
  bus.daemon().signal(SIGCONT);
  post(agent, "after");
  EXPECT_TRUE(becomesTrue([&] { return listener->line().find("after") != std::string::npos; }));
}

TEST_F(BusAgentTest, AStoppedAgentIsKilledAndReplaced) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  BusAgent agent(options());
  post(agent, "before");
  const pid_t stopped = agents().at(0);
  ::kill(stopped, SIGSTOP);
  EXPECT_LT(duration([&] { post(agent, "meanwhile"); }), 3s);
  EXPECT_TRUE(becomesTrue([&] { return !isAlive(stopped); }));
  post(agent, "after");
  EXPECT_THAT(listener->line(), HasSubstr("before"));
  EXPECT_THAT(listener->line(), HasSubstr("after"));
}

TEST_F(BusAgentTest, AnAgentThatWasKilledIsReplacedWithoutLoss) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  BusAgent agent(options());
  for (const char* name : {"one", "two", "three"}) {
    post(agent, name);
    EXPECT_THAT(listener->line(), HasSubstr(name));
    ::kill(agents().at(0), SIGKILL);
    ASSERT_TRUE(becomesTrue([] { return agents().empty(); }));
  }
}

TEST_F(BusAgentTest, WhatHoldsNoReportEndsTheConversation) {
  for (const char* script :
       {"head -c 100000 /dev/zero >&0; sleep 30", "printf '\\1\\0\\0\\0\\377' >&0; sleep 30",
        "printf '\\377\\377\\377\\377' >&0; sleep 30", "exit 0"}) {
    BusAgent agent(impostor(script));
    EXPECT_LT(duration([&] { post(agent); }), 900ms) << script;
    EXPECT_TRUE(becomesTrue([] { return children().empty(); })) << script;
  }
}

TEST_F(BusAgentTest, AnAgentThatHangsUpWithoutEndingIsKilled) {
  BusAgent agent(impostor("exec <&- sleep 30"));
  EXPECT_LT(duration([&] { post(agent); }), 900ms);
  EXPECT_TRUE(becomesTrue([] { return children().empty(); }));
}

TEST_F(BusAgentTest, AnswersToWhatWasNeverAskedAreDropped) {
  // An answer to request 9, then one to request 1, which is the first.
  BusAgent agent(
      impostor("printf '\\12\\0\\0\\0\\1\\11\\0\\0\\0\\0\\0\\0\\0\\1' >&0; sleep 0.1;"
               "printf '\\12\\0\\0\\0\\1\\1\\0\\0\\0\\0\\0\\0\\0\\2' >&0; cat"));
  const auto report = agent.ask(platform::bus::RequestKind::findClient, {});
  ASSERT_TRUE(report);
  EXPECT_EQ(report->outcome, platform::bus::Outcome::absent);
}

TEST_F(BusAgentTest, AnAgentThatReadsNothingIsGivenUpAlsoWithMuchToSay) {
  BusAgent agent(impostor("exec sleep 30"));
  const foundation::PropertyList much =
      foundation::PropertyList::Dictionary{{"output", std::string(5U << 20, 'a')}};
  EXPECT_LT(duration([&] { BusDistributedNotifications(agent).post("n", much); }), 3s);
  EXPECT_TRUE(becomesTrue([] { return children().empty(); }));
}

TEST_F(BusAgentTest, TheAgentInheritsNoDescriptorAndNoEnvironment) {
  const auto bus = PrivateBus::session(folder);
  const std::string marker = folder.path() + "/marker";
  const UniqueDescriptor open(::open(marker.c_str(), O_CREAT | O_RDONLY, 0600));  // NOLINT: without O_CLOEXEC
  ::setenv("QUILLMEND_TEST_SECRET", "x", 1);
  const std::string report = folder.path() + "/report";
  BusAgent agent(impostor("tr '\\0' '\\n' </proc/$$/environ >" + report +
                          "; ls -l /proc/$$/fd | grep marker >>" + report + "; echo end >>" + report));
  post(agent);
  ::unsetenv("QUILLMEND_TEST_SECRET");
  std::ostringstream text;
  ASSERT_TRUE(becomesTrue([&] {
    text.str("");
    text << std::ifstream(report).rdbuf();
    return text.str().ends_with("end\n");
  }));
  EXPECT_EQ(text.str(), "end\n");
}

TEST_F(BusAgentTest, TheAgentEndsWithThisObject) {
  const auto bus = PrivateBus::session(folder);
  pid_t process = 0;
  {
    BusAgent agent(options());
    post(agent);
    process = agents().at(0);
  }
  EXPECT_TRUE(becomesTrue([&] { return !isAlive(process); }));
}

TEST_F(BusAgentTest, ANotificationOnTheScreenKeepsTheAgentUntilItIsGone) {
  const auto bus = PrivateBus::session(folder);
  auto desktop = partner("server", bus.address(), {"stay"});
  pid_t process = 0;
  {
    BusAgent agent(options());
    BusDesktopNotifications(agent).post(platform::DesktopNotification());
    EXPECT_THAT(desktop->line(), StartsWith("notify"));
    process = agents().at(0);
  }
  std::this_thread::sleep_for(300ms);  // long enough for an agent that does not stay to have gone
  EXPECT_TRUE(isAlive(process));
  ::kill(process, SIGKILL);
  EXPECT_TRUE(becomesTrue([&] { return !isAlive(process); }));
}

TEST_F(BusAgentTest, ThreadsMayAskAtOnce) {
  const auto bus = PrivateBus::session(folder);
  BusAgent agent(options());
  std::atomic<int> answers = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 10; ++round) {
        const foundation::PropertyList fields =
            foundation::PropertyList::Dictionary{{"name", "com.vordenworks.X"}};
        if (agent.ask(platform::bus::RequestKind::findClient, fields)) ++answers;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(answers, 40);
  EXPECT_THAT(agents(), SizeIs(1));
}

TEST_F(BusAgentTest, AsRootTheAgentIsTheConsoleUserForGood) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give it up";
  system.users.console = "nobody";
  const auto bus = PrivateBus::session(folder, kNobody);
  BusAgent agent(options());
  post(agent);
  const pid_t process = agents().at(0);
  EXPECT_EQ(statusLine(process, "Uid"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(statusLine(process, "Gid"), "65534\t65534\t65534\t65534");
  EXPECT_THAT(statusLine(process, "Groups"), StartsWith("65534"));
  EXPECT_EQ(statusLine(process, "CapEff"), "0000000000000000");
  EXPECT_EQ(statusLine(process, "NoNewPrivs"), "1");
}

}  // namespace
