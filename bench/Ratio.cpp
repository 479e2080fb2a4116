#include "bench/Ratio.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace bench {
namespace {

constexpr int kUsualTimes = 5;

volatile std::sig_atomic_t isToldToEnd = 0;

/// Children are signalled by the terminal themselves; what they leave is this program's to remove.
void endWhenTold() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, [](int) { isToldToEnd = 1; });
}

double unlessToldToEnd(const std::function<double()>& work) {
  if (isToldToEnd != 0) throw std::runtime_error("interrupted");
  return work();
}

pid_t spawn(const std::vector<std::string>& commandLine, const std::string& output) {
  std::vector<std::string> words = commandLine;
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  pid_t child = -1;
  const int failure = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error("cannot run " + commandLine.front());
  return child;
}

/// What main's arguments ask for; throws std::invalid_argument for what it does not know.
struct Request {
  int times = kUsualTimes;
  std::string row;
  std::vector<std::size_t> sizes;
};

Request readRequest(std::vector<std::string> words) {
  Request request;
  if (words.size() > 1 && words.front() == "--times") {
    request.times = std::stoi(words.at(1));
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.size() < 2 || request.times < 1) throw std::invalid_argument("no row and size");
  request.row = words.front();
  for (std::size_t at = 1; at < words.size(); ++at) request.sizes.push_back(std::stoul(words[at]));
  return request;
}

int usage(const char* program, const std::vector<Row>& rows) {
  std::fprintf(stderr, "usage: %s [--times N] ROW SIZE...\nrows:", program);
  for (const Row& row : rows) std::fprintf(stderr, " %s", row.name.c_str());
  std::fprintf(stderr, "\n");
  return 64;
}

void measure(const Row& row, const Request& request) {
  for (const std::size_t size : request.sizes) {
    const Medians medians = row.measure(size, request.times);
    std::printf("measured %s %zu %.6f %.6f %.4f\n", row.name.c_str(), size, medians.subject, medians.peer,
                medians.subject / medians.peer);
    std::fflush(stdout);
  }
}

}  // namespace

Cost run(const std::vector<std::string>& commandLine, const std::string& output) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = spawn(commandLine, output);
  int status = 0;
  rusage usage{};
  while (::wait4(child, &status, 0, &usage) != child) {
    if (errno != EINTR) throw std::runtime_error("cannot wait for " + commandLine.front());
  }
  const Cost cost{std::chrono::steady_clock::now() - start, usage.ru_maxrss};
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(commandLine.front() + " failed");
  }
  return cost;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Medians compareInTurn(const std::function<double()>& subject, const std::function<double()>& peer,
                      int times) {
  std::vector<double> subjectTimes;
  std::vector<double> peerTimes;
  static_cast<void>(unlessToldToEnd(peer));
  static_cast<void>(unlessToldToEnd(subject));
  for (int round = 0; round < times; ++round) {
    if (round % 2 == 0) subjectTimes.push_back(unlessToldToEnd(subject));
    peerTimes.push_back(unlessToldToEnd(peer));
    if (round % 2 == 1) subjectTimes.push_back(unlessToldToEnd(subject));
  }
  return {median(subjectTimes), median(peerTimes)};
}

int measureRows(int argc, char** argv, const std::vector<Row>& rows) try {
  const Request request = readRequest({argv + 1, argv + argc});
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const Row& one) { return one.name == request.row; });
  if (row == rows.end()) return usage(argv[0], rows);
  endWhenTold();
  measure(*row, request);
  return 0;
} catch (const std::logic_error&) {
  return usage(argv[0], rows);
} catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}

}  // namespace bench
