#include "platform/posix/Report.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "platform/posix/SystemLog.h"
#include "tests/helpers/LogSocket.h"
#include "tests/helpers/TestVolume.h"
#include "tests/support/FailingCall.h"

namespace helpers {
namespace {

using platform::kLongestLogLine;

TEST(Escaped, ControlCharactersCannotFakeLines) {
  EXPECT_EQ(escaped("a\nb\tc\rd\\e\x1b[0m\x7f"), "a\\nb\\tc\\rd\\\\e\\033[0m\\177");
}

TEST(Escaped, PlainUtf8StaysAndOtherBytesBecomeOctal) {
  EXPECT_EQ(escaped("Müller 日本"), "Müller 日本");
  EXPECT_EQ(escaped("\xff\xc3"), "\\377\\303");
  EXPECT_EQ(escaped("\xc0\x8a"), "\\300\\212");           // an overlong line feed
  EXPECT_EQ(escaped("\xed\xa0\x80"), "\\355\\240\\200");  // a surrogate
}

TEST(Escaped, UnicodeLineEndsAndDirectionMarksBecomeOctal) {
  EXPECT_EQ(escaped("\u0085"), "\\302\\205");
  EXPECT_EQ(escaped("\u2028"), "\\342\\200\\250");
  EXPECT_EQ(escaped("\u202e"), "\\342\\200\\256");
  for (const char* mark : {"\u200e", "\u200f", "\u2029", "\u2066", "\u2069"}) {
    EXPECT_EQ(escaped(mark)[0], '\\') << mark;
  }
  for (const char* plain : {"\u00a0", "\u200d", "\u2010", "\u2027", "\u202f", "\u2065", "\u206a"}) {
    EXPECT_EQ(escaped(plain), plain);
  }
}

TEST(Report, AFailureIsOneLineWithPathAndReason) {
  RecordedReport recorded;
  Report& report = recorded;
  report.failure(foundation::systemError(EACCES, "/a\nb"));
  EXPECT_EQ(recorded.text(), "tool: /a\\nb: Permission denied\n");
  EXPECT_EQ(report.status(), ExitStatus::failed);
}

TEST(Report, ABrokenDescriptorDoesNotStopTheWork) {
  Report report("tool", -1);
  report.failure("/a", "reason");
  EXPECT_EQ(report.status(), ExitStatus::failed);
}

TEST(Report, AnErrorThatDoesNotNameItsPathIsToldWhole) {
  RecordedReport recorded;
  Report& report = recorded;
  report.failure(foundation::Error{EIO, "/a", "it is no use"});
  report.failure(foundation::Error{EIO, "", "there is no path"});
  EXPECT_EQ(recorded.text(), "tool: /a: it is no use\ntool: : there is no path\n");
}

constexpr std::chrono::milliseconds kPatience(500);

/// Twenty failures, to whom nobody listens: patience is had with the first alone.
void expectOneDelay(Report& report) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) report.failure("/a", "reason");
  const auto passed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(passed, kPatience);
  EXPECT_LT(passed, 10 * kPatience);
}

/// It cannot be opened once more as a pipe can.
TEST(Report, AFullSocketThatNobodyReadsDelaysTheWorkOnlyOnce) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const std::string block(4096, 'x');
  while (send(ends[1], block.data(), block.size(), MSG_DONTWAIT) > 0) continue;
  alarm(30);  // ends a test that blocks
  Report report("tool", ends[1], kPatience);
  expectOneDelay(report);
  alarm(0);
  EXPECT_EQ(report.status(), ExitStatus::failed);
  close(ends[0]);
  close(ends[1]);
}

TEST(Report, ADescriptorThatIsOnlyReadGetsNothing) {
  const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
  Report report("tool", null);
  report.failure("/a", "reason");
  EXPECT_EQ(report.status(), ExitStatus::failed);
  close(null);
}

TEST(Report, OneThatIsStoppedWithSuccessHasNoFailure) {
  RecordedReport recorded;
  EXPECT_EQ(static_cast<Report&>(recorded).stop(ExitStatus::done, "nothing to do"), ExitStatus::done);
  EXPECT_FALSE(static_cast<Report&>(recorded).anyFailure());
  EXPECT_EQ(recorded.text(), "tool: nothing to do\n");
}

class FullPipe : public ::testing::Test {
 protected:
  FullPipe() {
    if (pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    fcntl(ends_[1], F_SETFL, O_NONBLOCK);
    const std::string block(4096, 'x');
    while (write(ends_[1], block.data(), block.size()) > 0) continue;
    fcntl(ends_[1], F_SETFL, 0);
    alarm(30);  // ends a test that blocks
  }
  ~FullPipe() override {
    alarm(0);
    close(ends_[0]);
    close(ends_[1]);
  }
  std::string readAll() {
    std::string all(1 << 20, '\0');
    const ssize_t count = read(ends_[0], all.data(), all.size());
    all.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return all;
  }

  int ends_[2] = {-1, -1};
};

TEST_F(FullPipe, ThatNobodyReadsDelaysTheWorkOnlyOnce) {
  Report report("tool", ends_[1], kPatience);
  expectOneDelay(report);
  EXPECT_EQ(report.status(), ExitStatus::failed);
  EXPECT_EQ(fcntl(ends_[1], F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(FullPipe, ThatIsReadAgainGetsTheLinesFromThere) {
  Report report("tool", ends_[1], std::chrono::milliseconds(1));
  report.failure("/lost", "reason");
  EXPECT_EQ(readAll().find('/'), std::string::npos);
  report.failure("/a", "reason");
  EXPECT_EQ(readAll(), "tool: /a: reason\n");
}

/// A report that writes to a system log as well.
class LoggedReport : public ::testing::Test {
 protected:
  LoggedReport() {
    if (mkdtemp(folder_.data()) == nullptr) throw std::runtime_error("mkdtemp");
  }
  ~LoggedReport() override { std::filesystem::remove_all(folder_); }
  Report report() { return Report("tool", -1, Report::kPatience, socket()); }
  [[nodiscard]] std::string socket() const { return folder_ + "/log"; }

 private:
  std::string folder_ = std::filesystem::temp_directory_path() / "report.XXXXXX";
};

TEST_F(LoggedReport, TellsTheSystemLogWhatCouldNotBeDone) {
  const LogSocket log(socket());
  report().failure("/a\nb", "reason");
  EXPECT_THAT(log.receive(), ::testing::MatchesRegex("<12>[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]{8} tool\\[" +
                                                     std::to_string(getpid()) + "\\]: /a\\\\nb: reason"));
  EXPECT_EQ(log.receive(), "nothing");
}

TEST_F(LoggedReport, TellsTheSystemLogOfARefusalButNotOfWrongArguments) {
  const LogSocket log(socket());
  report().stop(ExitStatus::usage, "usage: tool");
  EXPECT_EQ(log.receive(), "nothing");
  report().stop(ExitStatus::refused, "refused");
  EXPECT_THAT(log.receive(), ::testing::EndsWith("]: refused"));
}

TEST_F(LoggedReport, TellsTheSystemLogAloneWhatWasMovedWhere) {
  const LogSocket log(socket());
  const Report told = report();
  told.moved("/a\nb", "/trash/a\nb");
  EXPECT_THAT(log.receive(), ::testing::AllOf(::testing::StartsWith("<14>"),
                                              ::testing::EndsWith("]: /a\\nb: moved to /trash/a\\nb")));
  told.moving("/folder/*", "/trash");
  EXPECT_THAT(log.receive(), ::testing::EndsWith("]: /folder/*: moving to /trash"));
  EXPECT_EQ(told.status(), ExitStatus::done);
}

TEST_F(LoggedReport, IsNotHeldUpByALogThatNobodyReads) {
  const LogSocket log(socket());
  alarm(30);  // ends a test that blocks
  for (int i = 0; i < 5000; ++i) report().failure("/a", "reason");
  alarm(0);
  EXPECT_THAT(log.receive(), ::testing::EndsWith("]: /a: reason"));
}

TEST_F(LoggedReport, DoesWithoutALogThatIsNotThere) {
  Report lonely = report();
  lonely.failure("/a", "reason");
  EXPECT_EQ(lonely.status(), ExitStatus::failed);
}

TEST_F(LoggedReport, DoesWithoutALogThatCannotBeConnectedTo) {
  const LogSocket log(socket());
  support::FailingCall::run(SYS_socket, EMFILE, [this] {
    RecordedReport recorded;
    report().failure("/a", "reason");
  });
  EXPECT_EQ(log.receive(), "nothing");
  Report lost("tool", -1, Report::kPatience, std::string(200, 'l'));  // longer than the address of a socket
  lost.failure("/a", "reason");
  EXPECT_EQ(lost.status(), ExitStatus::failed);
}

TEST_F(LoggedReport, CutsALineThatIsTooLong) {
  const LogSocket log(socket());
  report().failure("/a", std::string(2 * kLongestLogLine, 'r'));
  EXPECT_EQ(log.receive().size(), kLongestLogLine);
}

}  // namespace
}  // namespace helpers
