#include "bench/Ratio.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace bench {
namespace {

pid_t spawn(const std::vector<std::string>& commandLine) {
  std::vector<std::string> words = commandLine;
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int failure = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error("cannot run " + commandLine.front());
  return child;
}

}  // namespace

Cost run(const std::vector<std::string>& commandLine) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = spawn(commandLine);
  int status = 0;
  rusage usage{};
  if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(commandLine.front() + " failed");
  }
  return Cost{std::chrono::steady_clock::now() - start, usage.ru_maxrss};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

Comparison compare(const std::vector<std::string>& subject, const std::vector<std::string>& peer, int times) {
  std::vector<double> subjectTimes;
  std::vector<double> peerTimes;
  Comparison result;
  for (int round = 0; round < times; ++round) {
    const Cost ours = run(subject);
    const Cost theirs = run(peer);
    subjectTimes.push_back(ours.wall.count());
    peerTimes.push_back(theirs.wall.count());
    result.subjectMemory = std::max(result.subjectMemory, ours.peakMemory);
    result.peerMemory = std::max(result.peerMemory, theirs.peakMemory);
  }
  result.subject = median(subjectTimes);
  result.peer = median(peerTimes);
  result.ratio = result.subject / result.peer;
  return result;
}

Medians compareInTurn(const std::function<double()>& subject, const std::function<double()>& peer,
                      int times) {
  std::vector<double> subjectTimes;
  std::vector<double> peerTimes;
  static_cast<void>(peer());
  for (int round = 0; round < times; ++round) {
    if (round % 2 == 0) subjectTimes.push_back(subject());
    peerTimes.push_back(peer());
    if (round % 2 == 1) subjectTimes.push_back(subject());
  }
  return {median(subjectTimes), median(peerTimes)};
}

}  // namespace bench
