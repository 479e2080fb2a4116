#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/LinuxPropertyLists.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

using foundation::PropertyList;
using namespace std::chrono_literals;

namespace {

constexpr uid_t kNobody = 65534;
constexpr int kChanges = 25;

/// As root the list is the console user's; so the programs run as somebody else.
class ShortcutKeyWritersTest : public testing::Test {
 protected:
  ShortcutKeyWritersTest() {
    home.makeAccessibleToAll();
    if (account) {
      EXPECT_EQ(::chown(home.path().c_str(), *account, *account), 0);
    }
  }

  [[nodiscard]] std::unique_ptr<ChildProcess> writer(const std::string& name) const {
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"env", "HOME=" + home.path(), support::programForAll(ASSIGN_KEYS), name,
                                 std::to_string(kChanges)},
        account);
  }

  const std::optional<uid_t> account = ::geteuid() == 0 ? std::optional(kNobody) : std::nullopt;
  support::TemporaryFolder home;
};

TEST_F(ShortcutKeyWritersTest, ProgramsThatAssignAtTheSameTimeLoseNothing) {
  std::vector<std::unique_ptr<ChildProcess>> writers;
  for (const char* name : {"a", "b", "c"}) writers.push_back(writer(name));
  for (const auto& one : writers) EXPECT_EQ(one->line(60s), std::to_string(kChanges));

  platform::LinuxPropertyLists lists;
  const auto list = lists.parse(home.content("Library/Preferences/com.vordenworks.shortcutkeys.plist"));
  ASSERT_TRUE(list);
  const auto* const entries = list.value().find("watchlist")->as<PropertyList::Array>();
  ASSERT_NE(entries, nullptr);
  std::map<std::string, int> next;
  for (const PropertyList& entry : *entries) {
    EXPECT_EQ(entry.stringFor("commandid"), std::to_string(next[entry.stringFor("bundleid")]++));
  }
  EXPECT_EQ(next, (std::map<std::string, int>{{"a", kChanges}, {"b", kChanges}, {"c", kChanges}}));
}

}  // namespace
