#include "platform/posix/PosixSystemConsole.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <regex>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

/// Puts another descriptor in the place of standard error for the length of a scope.
class StandardErrorReplaced {
 public:
  explicit StandardErrorReplaced(int replacement) : saved_(::dup(STDERR_FILENO)) {
    if (replacement < 0) {
      ::close(STDERR_FILENO);
    } else {
      ::dup2(replacement, STDERR_FILENO);
    }
  }
  ~StandardErrorReplaced() {
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
  }
  StandardErrorReplaced(const StandardErrorReplaced&) = delete;
  StandardErrorReplaced& operator=(const StandardErrorReplaced&) = delete;

 private:
  int saved_;
};

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    reading.reset(ends[0]);
    writing.reset(ends[1]);
  }
  /// What is in it, without waiting for more.
  [[nodiscard]] std::string content() const {
    std::string bytes(2 << 20, '\0');
    ::fcntl(reading.get(), F_SETFL, O_NONBLOCK);
    const ssize_t length = ::read(reading.get(), bytes.data(), bytes.size());
    return bytes.substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  }
  UniqueDescriptor reading;
  UniqueDescriptor writing;
};

/// A system log that is listened to.
class LogSocket {
 public:
  explicit LogSocket(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  /// The next datagram, or "nothing".
  [[nodiscard]] std::string receive() const {
    std::string bytes(1 << 16, '\0');
    const ssize_t length = ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    return length < 0 ? "nothing" : bytes.substr(0, static_cast<std::size_t>(length));
  }

 private:
  UniqueDescriptor socket_;
};

class PosixSystemConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    previous_ = std::signal(SIGPIPE, SIG_IGN);
  }
  void TearDown() override { static_cast<void>(std::signal(SIGPIPE, previous_)); }

  support::TemporaryFolder folder;
  fakes::Recorder recorder;
  fakes::FakeClock clock{recorder};
  fakes::FakeProcessInformation process;
  PosixSystemConsole console{clock, process, folder / "log"};

 private:
  void (*previous_)(int) = nullptr;
};

TEST_F(PosixSystemConsoleTest, AMessageIsOneLineWithTimeNameAndNumbers) {
  const Pipe pipe;
  {
    const StandardErrorReplaced replaced(pipe.writing.get());
    console.write("message");
  }
  EXPECT_EQ(pipe.content(), foundation::stringWithFormat("2011-01-01 10:00:00.000 Quillmend[%d:%d] message\n",
                                                         ::getpid(), ::gettid()));
}

TEST_F(PosixSystemConsoleTest, TheThreadsNumberIsItsOwn) {
  const Pipe pipe;
  {
    const StandardErrorReplaced replaced(pipe.writing.get());
    std::thread([&] { console.write("message"); }).join();
  }
  EXPECT_THAT(pipe.content(),
              Not(HasSubstr(foundation::stringWithFormat("[%d:%d]", ::getpid(), ::getpid()))));
}

TEST_F(PosixSystemConsoleTest, AMessageOfSeveralLinesStaysAsItIs) {
  const Pipe pipe;
  {
    const StandardErrorReplaced replaced(pipe.writing.get());
    console.write("one\ntwo %@ %s 100%");
  }
  EXPECT_THAT(pipe.content(), ::testing::EndsWith("] one\ntwo %@ %s 100%\n"));
}

TEST_F(PosixSystemConsoleTest, EveryMessageIsWrittenInOnePiece) {
  // A seqpacket socket keeps the pieces apart.
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
  const UniqueDescriptor reading(ends[0]);
  const UniqueDescriptor writing(ends[1]);
  {
    const StandardErrorReplaced replaced(writing.get());
    console.write(std::string(10000, 'x'));
    console.write("two\nlines");
  }
  std::string piece(1 << 16, '\0');
  EXPECT_GT(::recv(reading.get(), piece.data(), piece.size(), MSG_DONTWAIT), 10000);
  EXPECT_GT(::recv(reading.get(), piece.data(), piece.size(), MSG_DONTWAIT), 10);
  EXPECT_LT(::recv(reading.get(), piece.data(), piece.size(), MSG_DONTWAIT), 0);
}

TEST_F(PosixSystemConsoleTest, WritesToAFileBehindWhatIsThere) {
  folder.file("output", "before\n");
  const UniqueDescriptor file(::open((folder / "output").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  {
    const StandardErrorReplaced replaced(file.get());
    console.write("message");
  }
  EXPECT_THAT(folder.content("output"), AllOf(StartsWith("before\n"), HasSubstr("] message\n")));
}

TEST_F(PosixSystemConsoleTest, AClosedStandardErrorIsNoError) {
  const StandardErrorReplaced replaced(-1);
  console.write("message");
}

TEST_F(PosixSystemConsoleTest, APipeWithoutAReaderIsNoErrorAndCostsNoTime) {
  Pipe pipe;
  pipe.reading.reset();
  const StandardErrorReplaced replaced(pipe.writing.get());
  const auto start = std::chrono::steady_clock::now();
  for (int count = 0; count < 100; ++count) console.write("message");
  EXPECT_LT(std::chrono::steady_clock::now() - start, PosixSystemConsole::kPatience);
}

TEST_F(PosixSystemConsoleTest, AFullDeviceIsNoError) {
  const UniqueDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  const StandardErrorReplaced replaced(full.get());
  console.write("message");
}

TEST_F(PosixSystemConsoleTest, AReaderThatIsStuckHoldsUpOneMessageForABoundedTime) {
  const Pipe pipe;
  const StandardErrorReplaced replaced(pipe.writing.get());
  const auto start = std::chrono::steady_clock::now();
  console.write(std::string(200000, 'x'));
  for (int count = 0; count < 200; ++count) console.write("further message");
  const auto passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed, PosixSystemConsole::kPatience);
  EXPECT_LT(passed, 2 * PosixSystemConsole::kPatience);
  EXPECT_EQ(::fcntl(pipe.writing.get(), F_GETFL) & O_NONBLOCK, 0) << "others who share the pipe still block";
}

TEST_F(PosixSystemConsoleTest, AReaderThatCatchesUpGetsTheNextMessages) {
  const Pipe pipe;
  const StandardErrorReplaced replaced(pipe.writing.get());
  console.write(std::string(200000, 'x'));
  static_cast<void>(pipe.content());
  console.write("after");
  EXPECT_THAT(pipe.content(), ::testing::EndsWith("] after\n"));
}

TEST_F(PosixSystemConsoleTest, ALongMessageReachesAReaderThatReads) {
  const Pipe pipe;
  std::string received;
  std::thread reader([&] {
    std::string piece(4096, '\0');
    while (received.size() < 300000) {
      const ssize_t length = ::read(pipe.reading.get(), piece.data(), piece.size());
      if (length <= 0) return;
      received.append(piece, 0, static_cast<std::size_t>(length));
    }
  });
  {
    const StandardErrorReplaced replaced(pipe.writing.get());
    console.write(std::string(300000, 'x'));
  }
  reader.join();
  EXPECT_THAT(received, ::testing::EndsWith("x\n"));
}

TEST_F(PosixSystemConsoleTest, TheSystemLogGetsItAsFromSyslog) {
  const LogSocket log(folder / "log");
  const Pipe pipe;
  const StandardErrorReplaced replaced(pipe.writing.get());
  console.write("message 100%");
  EXPECT_EQ(log.receive(),
            foundation::stringWithFormat("<13>Jan  1 10:00:00 Quillmend[%d]: message 100%%", ::getpid()));
}

TEST_F(PosixSystemConsoleTest, ControlCharactersCannotForgeALineOfTheSystemLog) {
  const LogSocket log(folder / "log");
  const Pipe pipe;
  const StandardErrorReplaced replaced(pipe.writing.get());
  console.write("one\n<0>Jan  1 forged\x1B[2J\x7F\xC2\x9B h\xC3\xA9");
  EXPECT_THAT(log.receive(), ::testing::EndsWith(": one#012<0>Jan  1 forged#033[2J#177\xC2#233 h\xC3\xA9"));
}

TEST_F(PosixSystemConsoleTest, ALongLineOfTheSystemLogIsCut) {
  const LogSocket log(folder / "log");
  const Pipe pipe;
  const StandardErrorReplaced replaced(pipe.writing.get());
  console.write(std::string(20000, 'x'));
  EXPECT_THAT(log.receive(), SizeIs(PosixSystemConsole::kLongestLogLine));
}

TEST_F(PosixSystemConsoleTest, ALogThatNobodyReadsDoesNotStall) {
  const LogSocket log(folder / "log");
  const UniqueDescriptor null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const StandardErrorReplaced replaced(null.get());
  const auto start = std::chrono::steady_clock::now();
  for (int count = 0; count < 2000; ++count) console.write(std::string(4000, 'x'));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
  EXPECT_NE(log.receive(), "nothing");
}

}  // namespace
}  // namespace platform
