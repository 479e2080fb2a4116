#include "platform/linux/ConsoleUser.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <cstdlib>
#include <fstream>

namespace platform {
namespace {

using ::testing::Eq;
using ::testing::Optional;

class FixedSeat : public LoginSeat {
 public:
  explicit FixedSeat(SeatState state) : state_(std::move(state)) {}
  [[nodiscard]] SeatState state() const override { return state_; }

 private:
  SeatState state_;
};

class ConsoleUserTest : public ::testing::Test {
 protected:
  ConsoleUserTest() {
    const char* parent = std::getenv("TMPDIR");
    file_ = std::string(parent == nullptr ? "/tmp" : parent) + "/quillmend-utmp-XXXXXX";
    close(mkstemp(file_.data()));
  }
  ~ConsoleUserTest() override { unlink(file_.c_str()); }
  ConsoleUserTest(const ConsoleUserTest&) = delete;
  ConsoleUserTest& operator=(const ConsoleUserTest&) = delete;

  void add(const std::string& user, const std::string& line, int when = 0, int type = USER_PROCESS,
           pid_t pid = 0) {
    utmp record{};
    record.ut_type = static_cast<short>(type);
    record.ut_pid = pid;
    record.ut_tv.tv_sec = when;
    user.copy(record.ut_user, sizeof record.ut_user);
    line.copy(record.ut_line, sizeof record.ut_line);
    std::ofstream(file_, std::ios::app | std::ios::binary)
        .write(reinterpret_cast<const char*>(&record), sizeof record);
  }
  std::optional<std::string> fromUtmp() { return consoleUserFromUtmp(file_); }
  std::optional<std::string> fromSeat(SeatState state) {
    return consoleUser(FixedSeat(std::move(state)), {file_});
  }

  std::string file_;
};

using Answer = SeatState::Answer;

TEST_F(ConsoleUserTest, TheSeatsSessionIsTheConsoleUser) {
  add("bob", "tty1");
  EXPECT_THAT(fromSeat({Answer::session, "user", "alice"}), Optional(Eq("alice")));
}

TEST_F(ConsoleUserTest, AGreeterIsNobodyAndTheLoginRecordsAreNotAsked) {
  add("bob", "tty1");
  EXPECT_EQ(fromSeat({Answer::session, "greeter", "alice"}), std::nullopt);
  EXPECT_EQ(fromSeat({Answer::session, "user", "gdm"}), std::nullopt);
  EXPECT_EQ(fromSeat({Answer::session, "user", "loginwindow"}), std::nullopt);
  EXPECT_EQ(fromSeat({Answer::session, "user", ""}), std::nullopt);
  EXPECT_EQ(fromSeat({Answer::nobody, "", ""}), std::nullopt);
}

TEST_F(ConsoleUserTest, WithoutLoginManagerTheLoginRecordsAreAsked) {
  add("bob", "tty1");
  EXPECT_THAT(fromSeat({}), Optional(Eq("bob")));
  EXPECT_THAT(consoleUser(FixedSeat({}), {"/nowhere/utmp", file_}), Optional(Eq("bob")));
  EXPECT_EQ(consoleUser(FixedSeat({}), {"/nowhere/utmp"}), std::nullopt);
}

TEST_F(ConsoleUserTest, LocalLinesCount) {
  for (const char* line : {"console", "tty1", "tty63", ":0", ":12", ":0.0"}) {
    unlink(file_.c_str());
    add("alice", line);
    EXPECT_THAT(fromUtmp(), Optional(Eq("alice"))) << line;
  }
}

TEST_F(ConsoleUserTest, RemoteAndOtherLinesDoNot) {
  for (const char* line :
       {"pts/0", "ttyS0", "tty", "ttyp0", "ttys001", ":", ":x", "localhost:10.0", "~", ""}) {
    unlink(file_.c_str());
    add("alice", line);
    EXPECT_EQ(fromUtmp(), std::nullopt) << line;
  }
}

TEST_F(ConsoleUserTest, OtherKindsOfRecordsDoNotCount) {
  for (const int type : {DEAD_PROCESS, LOGIN_PROCESS, INIT_PROCESS, BOOT_TIME, EMPTY})
    add("alice", "tty1", 0, type);
  EXPECT_EQ(fromUtmp(), std::nullopt);
}

TEST_F(ConsoleUserTest, GreeterAccountsAreNobody) {
  for (const char* greeter : {"gdm", "lightdm", "sddm", "loginwindow", "Debian-gdm"}) add(greeter, ":0");
  EXPECT_EQ(fromUtmp(), std::nullopt);
}

TEST_F(ConsoleUserTest, TheConsoleGoesBeforeADisplayAndADisplayBeforeAText) {
  add("text", "tty1", 300);
  EXPECT_THAT(fromUtmp(), Optional(Eq("text")));
  add("display", ":0", 200);
  add("text", "tty2", 400);
  EXPECT_THAT(fromUtmp(), Optional(Eq("display")));
  add("console", "console", 100);
  EXPECT_THAT(fromUtmp(), Optional(Eq("console")));
}

TEST_F(ConsoleUserTest, TheLatestLoginCounts) {
  add("later", "tty2", 200);
  add("earlier", "tty1", 100);
  EXPECT_THAT(fromUtmp(), Optional(Eq("later")));
}

TEST_F(ConsoleUserTest, ARecordWhoseProcessIsGoneIsStale) {
  const pid_t gone = fork();
  if (gone == 0) _exit(0);
  waitpid(gone, nullptr, 0);
  add("ghost", "tty1", 0, USER_PROCESS, gone);
  EXPECT_EQ(fromUtmp(), std::nullopt);
  add("alice", "tty2", 0, USER_PROCESS, getpid());
  EXPECT_THAT(fromUtmp(), Optional(Eq("alice")));
}

TEST_F(ConsoleUserTest, AFullNameFieldIsReadToItsEnd) {
  add(std::string(UT_NAMESIZE, 'n'), "tty1");
  EXPECT_THAT(fromUtmp(), Optional(Eq(std::string(UT_NAMESIZE, 'n'))));
}

TEST_F(ConsoleUserTest, ACutFileGivesItsWholeRecords) {
  add("alice", "tty1", 100);
  std::ofstream(file_, std::ios::app) << "rest";
  EXPECT_THAT(fromUtmp(), Optional(Eq("alice")));
  EXPECT_EQ(consoleUserFromUtmp("/"), std::nullopt);
}

TEST_F(ConsoleUserTest, TheRealLoginManagerGivesAWholeAnswer) {
  const SeatState state = LogindSeat().state();
  EXPECT_EQ(state.answer == Answer::session, !state.sessionClass.empty());
}

}  // namespace
}  // namespace platform
