#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "services/TGTask.h"

namespace {

constexpr const char* kTrue = "/bin/true";
constexpr const char* kCat = "/bin/cat";
constexpr std::size_t kMebibyte = 1UL << 20;
constexpr std::size_t kReadSize = 64UL << 10;
/// A program that has run has touched more pages than these.
constexpr long kLeastPageFaults = 20;

void waitFor(pid_t child) {
  int status = -1;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  bench::require(status == 0, "a program failed");
}

pid_t spawn(const char* program, const char* argument, const posix_spawn_file_actions_t* actions) {
  std::string name = program;
  std::string word = argument != nullptr ? argument : "";
  std::array<char*, 3> arguments = {name.data(), argument != nullptr ? word.data() : nullptr, nullptr};
  pid_t child = -1;
  const int failure = ::posix_spawn(&child, program, actions, nullptr, arguments.data(), environ);
  bench::require(failure == 0, "cannot run " + name);
  return child;
}

long pageFaultsOfChildren() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_minflt;
}

template <typename RunOnce>
double runAll(std::size_t runs, RunOnce runOnce) {
  const long before = pageFaultsOfChildren();
  const double seconds = bench::secondsOf([&] {
    for (std::size_t number = 0; number < runs; ++number) runOnce();
  });
  const long faults = pageFaultsOfChildren() - before;
  bench::require(faults >= kLeastPageFaults * static_cast<long>(runs), "not every program was run");
  return seconds;
}

bench::Medians measureRuns(std::size_t runs, int times) {
  const auto ours = [] {
    bench::require(TGTask::runTask(kTrue, TGTask::Arguments(), nullptr), "runTask failed");
  };
  const auto theirs = [] { waitFor(spawn(kTrue, nullptr, nullptr)); };
  return bench::compareInTurn([&] { return runAll(runs, ours); }, [&] { return runAll(runs, theirs); },
                              times);
}

/// A byte that differs from place to place, so that pieces in the wrong order show.
char byteOf(std::size_t mebibyte) {
  return static_cast<char>('A' + mebibyte % 23);
}

void makeFile(const std::string& path, std::size_t mebibytes) {
  std::ofstream file(path, std::ios::binary);
  for (std::size_t number = 0; number < mebibytes; ++number) file << std::string(kMebibyte, byteOf(number));
  bench::require(file.flush().good(), "cannot write " + path);
}

void check(const std::string& data, std::size_t mebibytes) {
  bench::require(data.size() == mebibytes * kMebibyte, "not all of the data was read");
  for (std::size_t number = 0; number < mebibytes; ++number) {
    const std::size_t begin = number * kMebibyte;
    bench::require(data[begin] == byteOf(number) && data[begin + kMebibyte - 1] == byteOf(number),
                   "the data is not that of the file");
  }
}

double dataFromTask(const std::string& path, std::size_t mebibytes) {
  std::optional<std::string> data;
  const double seconds =
      bench::secondsOf([&] { data = TGTask::dataFromTask(kCat, TGTask::Arguments({path}), nullptr); });
  check(data.value_or(""), mebibytes);
  return seconds;
}

/// The bytes that come through; `kept` gets them where it is given.
std::uint64_t readToEnd(int pipe, std::string* kept) {
  std::array<char, kReadSize> piece;  // NOLINT(*-member-init)
  std::uint64_t bytes = 0;
  while (true) {
    const ssize_t length = ::read(pipe, piece.data(), piece.size());
    if (length > 0) bytes += static_cast<std::uint64_t>(length);
    if (length > 0 && kept != nullptr) kept->append(piece.data(), static_cast<std::size_t>(length));
    if (length == 0 || (length < 0 && errno != EINTR)) return bytes;
  }
}

std::uint64_t catThroughPipe(const std::string& path, std::string* kept) {
  std::array<int, 2> ends{};
  bench::require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  const pid_t child = spawn(kCat, path.c_str(), &actions);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  const std::uint64_t bytes = readToEnd(ends[0], kept);
  ::close(ends[0]);
  waitFor(child);
  return bytes;
}

double readLoop(const std::string& path, std::size_t mebibytes) {
  std::uint64_t bytes = 0;
  const double seconds = bench::secondsOf([&] { bytes = catThroughPipe(path, nullptr); });
  bench::require(bytes == mebibytes * kMebibyte, "not all of the data was read");
  return seconds;
}

double readLoopThatKeeps(const std::string& path, std::size_t mebibytes) {
  std::string data;
  const double seconds = bench::secondsOf([&] { catThroughPipe(path, &data); });
  check(data, mebibytes);
  return seconds;
}

using Peer = double(const std::string& path, std::size_t mebibytes);

bench::Medians measureData(std::size_t mebibytes, int times, Peer* peer) {
  const bench::Ground ground;
  const std::string path = ground / "data";
  makeFile(path, mebibytes);
  return bench::compareInTurn([&] { return dataFromTask(path, mebibytes); },
                              [&] { return peer(path, mebibytes); }, times);
}

}  // namespace

/// How long runTask takes to run a program that many times against posix_spawn(3) and waitpid(2) in a loop,
/// and dataFromTask for that many MiB against cat(1) through a pipe into a loop of read(2) that keeps
/// nothing, and into one that keeps what it reads; how to call it says bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv,
                            {{"task-run", measureRuns},
                             {"task-data", [](std::size_t mebibytes,
                                              int times) { return measureData(mebibytes, times, readLoop); }},
                             {"task-data-kept", [](std::size_t mebibytes, int times) {
                                return measureData(mebibytes, times, readLoopThatKeeps);
                              }}});
}
