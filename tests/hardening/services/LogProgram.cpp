// log_program HOME NAME LINES WHAT...: takes part in a log as tests want it. Says on standard output what the
// system console is told. Each WHAT in its order:
//   new     begins a new log, between two calls of getppid(2), by which a tracer knows that part of the run
//   full    lets the log be full with one more line, "NAME fills it", so that the writes' own thread begins a
//           new one, between two such calls
//   append  appends that many lines, "NAME line 0" and so on
//   threads appends that many lines from each of eight threads at once, "NAME 0 line 0" and so on
//   room    takes the limit off the size of files, then says "room" and appends one line, "NAME has room"
//   wait    says "ready", waits for a byte from the FIFO HOME/go
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

#include "diagnostics/TGLog.h"
#include "platform/posix/UniqueDescriptor.h"
#include "tests/hardening/services/HomePlatform.h"

namespace {

struct Part {
  std::string home;
  std::string name;
  int lines = 0;
};

void begin() {
  static_cast<void>(::getppid());
  TGLog::createNewLog("Quillmend");
  static_cast<void>(::getppid());
}

void fill(const Part& part) {
  static_cast<void>(::getppid());
  TGLog::sharedController()->setBytesWritten(500'000);
  TGLog::appendLog("%@ fills it", part.name);
  TGLog::finishWriting();
  static_cast<void>(::getppid());
}

void append(const Part& part) {
  for (int line = 0; line < part.lines; ++line) TGLog::appendLog("%@ line %i", part.name, line);
  TGLog::finishWriting();
}

void appendFromThreads(const Part& part) {
  constexpr int kThreads = 8;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, &part] {
      for (int line = 0; line < part.lines; ++line)
        TGLog::appendLog("%@ %i line %i", part.name, thread, line);
    });
  }
  for (std::thread& thread : threads) thread.join();
  TGLog::finishWriting();
}

void makeRoom(const Part& part) {
  const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
  if (::setrlimit(RLIMIT_FSIZE, &unlimited) != 0) std::exit(1);
  std::printf("room\n");
  TGLog::appendLog("%@ has room", part.name);
}

void wait(const Part& part) {
  std::printf("ready\n");
  std::fflush(stdout);
  const platform::UniqueDescriptor go(::open((part.home + "/go").c_str(), O_RDONLY | O_CLOEXEC));
  char byte = 0;
  if (::read(go.get(), &byte, 1) != 1) std::exit(1);
}

void perform(std::string_view what, const Part& part) {
  if (what == "new") return begin();
  if (what == "full") return fill(part);
  if (what == "append") return append(part);
  if (what == "threads") return appendFromThreads(part);
  if (what == "room") return makeRoom(part);
  if (what == "wait") return wait(part);
  std::exit(64);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 5) return 64;
  if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR) return 1;  // as the program itself
  hardening::HomePlatform home(arguments[1]);
  TGLog::sharedController()->setAppName("Quillmend");  // also where it begins no new log
  const Part part{arguments[1], arguments[2], std::atoi(arguments[3])};
  for (int at = 4; at < count; ++at) perform(arguments[at], part);
  TGLog::finishWriting();
  std::fflush(stdout);
}
