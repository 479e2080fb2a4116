#include <grp.h>
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "diagnostics/TGLog.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLineLength = 120;
constexpr std::size_t kGenerationSize = 500'000;
constexpr std::size_t kGenerations = 5;
constexpr std::size_t kQueueSize = 8192;  ///< spdlog's own choice
/// Fits into the queue, so that no caller waits for the disk.
constexpr std::size_t kBurst = 4096;
constexpr uid_t kNobody = 65534;
constexpr const char* kPattern = "%Y-%m-%d %H:%M:%S +0000 - %v";  // as in our log

/// Lines of that length, each with its number, which no other of the process has.
class Lines {
 public:
  explicit Lines(std::size_t count) {
    lines_.reserve(count);
    for (std::size_t number = 0; number < count; ++number) {
      std::string line = "line " + std::to_string(next_++) + " ";
      line.resize(kLineLength, '.');
      lines_.push_back(std::move(line));
    }
  }
  [[nodiscard]] const std::vector<std::string>& all() const { return lines_; }

 private:
  static inline std::size_t next_ = 0;
  std::vector<std::string> lines_;
};

/// As root the log would be that of the machine.
void becomeSomebody() {
  if (::geteuid() != 0) return;
  bench::require(::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0,
                 "root's rights cannot be given up");
}

/// A home that both logs lie in.
class Home {
 public:
  Home() { ::setenv("HOME", ground_.path().c_str(), 1); }

  /// The files of a log, the oldest first: only so many are kept.
  [[nodiscard]] std::vector<std::string> ours() const {
    std::vector<std::string> files;
    for (std::size_t number = kGenerations; number > 0; --number) {
      files.push_back(ground_ / ("Library/Logs/Vordenworks/log_ratio." + std::to_string(number) + ".log"));
    }
    return files;
  }
  [[nodiscard]] std::vector<std::string> theirs() const {
    std::vector<std::string> files;
    for (std::size_t number = kGenerations - 1; number > 0; --number) {
      files.push_back(ground_ / ("peer." + std::to_string(number) + ".log"));
    }
    files.push_back(ground_ / "peer.log");
    return files;
  }

 private:
  bench::Ground ground_;
};

/// The last lines, in their order and without a gap: all that the generations hold.
void check(const std::vector<std::string>& files, const Lines& lines) {
  std::vector<std::string> found;
  for (const std::string& file : files) {
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
      const std::size_t begin = line.find(" - line ");
      if (begin != std::string::npos) found.push_back(line.substr(begin + 3));
    }
  }
  const auto& all = lines.all();
  const std::size_t kept = std::min(found.size(), all.size());
  const std::size_t least = std::min(all.size(), (kGenerations - 1) * kGenerationSize / (kLineLength + 40));
  bench::require(kept >= least && std::equal(all.end() - static_cast<std::ptrdiff_t>(kept), all.end(),
                                             found.end() - static_cast<std::ptrdiff_t>(kept)),
                 "lines are missing in " + files.back());
}

/// To the last byte written.
double writeOurs(const Home& home, const Lines& lines) {
  TGLog::createNewLog("log_ratio");
  const double seconds = bench::secondsOf([&] {
    for (const std::string& line : lines.all()) TGLog::appendLog("%@", line);
    TGLog::finishWriting();
  });
  check(home.ours(), lines);
  return seconds;
}

std::shared_ptr<spdlog::sinks::rotating_file_sink_mt> rotatingFile(const Home& home) {
  return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(home.theirs().back(), kGenerationSize,
                                                                kGenerations - 1);
}

double writeTheirs(const Home& home, const Lines& lines) {
  spdlog::logger logger("peer", rotatingFile(home));
  logger.set_pattern(kPattern, spdlog::pattern_time_type::utc);
  logger.flush_on(spdlog::level::trace);
  const double seconds = bench::secondsOf([&] {
    for (const std::string& line : lines.all()) logger.info("{}", line);
  });
  check(home.theirs(), lines);
  return seconds;
}

bench::Medians measureLog(std::size_t lines, int times) {
  becomeSomebody();
  const Home home;
  return bench::compareInTurn([&] { return writeOurs(home, Lines(lines)); },
                              [&] { return writeTheirs(home, Lines(lines)); }, times);
}

/// What the calls take, in bursts; what the queue has got is written in between, while nobody counts.
template <typename Append, typename Finish>
double timeOfCaller(const Lines& lines, Append append, Finish finish) {
  double seconds = 0;
  const auto& all = lines.all();
  for (std::size_t begin = 0; begin < all.size(); begin += kBurst) {
    const std::size_t end = std::min(begin + kBurst, all.size());
    seconds += bench::secondsOf([&] {
      for (std::size_t number = begin; number < end; ++number) append(all[number]);
    });
    finish(end);
  }
  return seconds;
}

double callOurs(const Home& home, const Lines& lines) {
  TGLog::createNewLog("log_ratio");
  const double seconds = timeOfCaller(
      lines, [](const std::string& line) { TGLog::appendLog("%@", line); },
      [](std::size_t) { TGLog::finishWriting(); });
  check(home.ours(), lines);
  return seconds;
}

/// Counts what the sinks before it have written.
class CountingSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  void waitFor(std::size_t count) const {
    while (count_ < count) std::this_thread::sleep_for(std::chrono::microseconds(100));
  }

 private:
  void sink_it_(const spdlog::details::log_msg&) override { ++count_; }
  void flush_() override {}

  std::atomic<std::size_t> count_ = 0;
};

double callTheirs(const Home& home, const Lines& lines) {
  const auto queue = std::make_shared<spdlog::details::thread_pool>(kQueueSize, 1);
  const auto counter = std::make_shared<CountingSink>();
  const spdlog::sinks_init_list sinks = {rotatingFile(home), counter};
  const auto logger =
      std::make_shared<spdlog::async_logger>("peer", sinks, queue, spdlog::async_overflow_policy::block);
  logger->set_pattern(kPattern, spdlog::pattern_time_type::utc);
  logger->flush_on(spdlog::level::trace);
  const double seconds = timeOfCaller(
      lines, [&](const std::string& line) { logger->info("{}", line); },
      [&](std::size_t count) { counter->waitFor(count); });
  logger->flush();
  check(home.theirs(), lines);
  return seconds;
}

bench::Medians measureCaller(std::size_t lines, int times) {
  becomeSomebody();
  const Home home;
  return bench::compareInTurn([&] { return callOurs(home, Lines(lines)); },
                              [&] { return callTheirs(home, Lines(lines)); }, times);
}

}  // namespace

/// How long appendLog takes for that many lines, to the last byte written, against spdlog's rotating file
/// logger that flushes each line; and how long its caller does, against spdlog's asynchronous logger. How to
/// call it says bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv, {{"log", measureLog}, {"log-caller", measureCaller}});
}
