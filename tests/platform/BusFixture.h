#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/fakes/FakePlatform.h"
#include "platform/linux/BusAgent.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

/// A folder for buses, an agent that tries only those, and partners on them. The console user is this
/// process's own account unless a test says otherwise.
class BusFixture : public testing::Test {
 protected:
  /// Debian's account without rights, present everywhere.
  static constexpr uid_t kNobody = 65534;

  BusFixture() {
    system.users.console = "root";
    folder.makeAccessibleToAll();
    // Those of the tests before may still be ending where all tests run in one process.
    EXPECT_TRUE(becomesTrue([] { return children().empty(); }));
  }

  /// Tries nothing but what lies in the test's folder.
  [[nodiscard]] platform::BusAgentOptions options() const {
    platform::BusAgentOptions options;
    options.program = BUSAGENT;
    options.runtimeFolder = folder.path();
    options.sessionBus = "unix:path=" + folder.path() + "/absent";
    options.systemBus = "unix:path=" + folder.path() + "/system";
    options.searchesProcesses = false;
    return options;
  }

  [[nodiscard]] std::unique_ptr<ChildProcess> partner(const std::string& role, const std::string& address,
                                                      std::vector<std::string> more = {},
                                                      std::optional<uid_t> account = std::nullopt) const {
    // A copy, since the account need not be allowed into the folder of the build.
    const std::string program = folder.path() + "/partner";
    std::filesystem::copy_file(BUS_PARTNER, program, std::filesystem::copy_options::skip_existing);
    std::vector<std::string> command = {program, role, address};
    command.insert(command.end(), more.begin(), more.end());
    auto child = std::make_unique<ChildProcess>(command, account);
    const std::string ready = "ready " + std::to_string(account.value_or(::geteuid())) + " ";
    const std::string line = child->line();
    EXPECT_THAT(line, testing::StartsWith(ready)) << role;
    return child;
  }

  static std::chrono::milliseconds duration(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
  }

  /// Looks until it is so, ten seconds at most.
  static bool becomesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  /// The processes that this one has started and not waited for, zombies too.
  static std::vector<pid_t> children();
  /// Those of them that run the bus agent.
  static std::vector<pid_t> agents();

  fakes::FakePlatform system;
  support::TemporaryFolder folder;
};
