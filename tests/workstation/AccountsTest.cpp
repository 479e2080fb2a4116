#include "workstation/Accounts.h"

#include <gmock/gmock.h>
#include <utmp.h>

#include <cstring>

namespace workstation {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

const Account alice{"alice", 501, 20, "Alice Editor", "/Users/alice", "/bin/sh"};

TEST(Accounts, APasswdLineReadsBackAsTheAccount) {
  EXPECT_THAT(parseAccounts(passwdLine(alice)), ElementsAre(alice));
}

TEST(Accounts, LinesThatAreNotWellFormedAreLeftOut) {
  EXPECT_THAT(parseAccounts("# comment\nx:*:one:1::/:/bin/sh\nshort:1\n\n:*:1:1::/:/bin/sh\n"), SizeIs(0));
}

TEST(Accounts, OwnGroupComesFirstAndIsNotRepeated) {
  EXPECT_THAT(groupsOf(alice, "wheel:*:0:root\nadmin:*:80:root,alice\nstaff:*:20:alice\nx:*:9:alicex\n"),
              ElementsAre(20, 80));
}

utmp recordAt(const std::string& bytes, std::size_t index) {
  utmp record{};
  std::memcpy(&record, bytes.data() + index * sizeof record, sizeof record);
  return record;
}

TEST(Accounts, AUserAtTheConsoleHasASessionInUtmp) {
  const auto bytes = utmpFor("alice");
  ASSERT_EQ(bytes.size(), 2 * sizeof(utmp));
  EXPECT_EQ(recordAt(bytes, 0).ut_type, BOOT_TIME);
  EXPECT_EQ(recordAt(bytes, 1).ut_type, USER_PROCESS);
  EXPECT_STREQ(recordAt(bytes, 1).ut_user, "alice");
  EXPECT_STREQ(recordAt(bytes, 1).ut_host, ":0");
}

TEST(Accounts, NobodyAtTheConsoleLeavesOnlyTheBootRecord) {
  EXPECT_EQ(utmpFor("").size(), sizeof(utmp));
}

}  // namespace
}  // namespace workstation
