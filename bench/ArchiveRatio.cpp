#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ratio.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t total = std::uint64_t{1} << 30U;
constexpr int times = 5;
constexpr double mostTime = 1.0;
constexpr double mostSize = 1.05;

/// A folder of the run's own, gone with it.
class Workplace {
 public:
  explicit Workplace(const fs::path& below) {
    std::string pattern = (below / "archive-ratio-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder in " + below.string());
    path_ = pattern;
  }
  ~Workplace() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

/// Lines as daemons write them, the same in every run.
class Log {
 public:
  std::string line() {
    constexpr const char* programs[] = {"qmasterd", "compressord", "jobcontrollerd", "requestprocessor",
                                        "share"};
    constexpr const char* events[] = {"batch submitted", "segment finished", "node joined the cluster",
                                      "cannot read the source", "status changed"};
    time_ += number(7);
    char text[256];
    const int length = std::snprintf(
        text, sizeof text,
        "2011-03-%02u %02u:%02u:%02u.%03u host%u %s[%u]: <%08X-%04X> %s (%u.%03u s, status %u)\n",
        1 + time_ / 86400 % 28, time_ / 3600 % 24, time_ / 60 % 60, time_ % 60, number(1000), number(16),
        programs[number(5)], 100 + number(900), static_cast<unsigned>(random_()), number(0x10000),
        events[number(5)], number(300), number(1000), number(16));
    return {text, static_cast<std::size_t>(length)};
  }
  unsigned number(unsigned below) { return static_cast<unsigned>(random_() % below); }

 private:
  std::mt19937 random_{1};
  unsigned time_ = 0;
};

std::uint64_t writeFile(const fs::path& path, std::uint64_t size, Log& log) {
  std::string text;
  while (text.size() < size) text += log.line();
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  if (!file.write(text.data(), static_cast<std::streamsize>(text.size())).flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
  return text.size();
}

/// Many small files and a few large ones, in folders of fifty: 1 KiB to 1 MiB, each twentieth 8 MiB.
void writeLogs(const fs::path& folder) {
  Log log;
  std::uint64_t written = 0;
  unsigned files = 0;
  for (; written < total; ++files) {
    const std::uint64_t size =
        files % 20 == 0 ? std::uint64_t{8} << 20U : std::uint64_t{1024} << log.number(11);
    const std::string place = std::to_string(files / 50) + "/" + std::to_string(files) + ".log";
    written += writeFile(folder / place, size, log);
  }
  std::printf("%u files, %.1f MiB\n", files, static_cast<double>(written) / (1U << 20U));
}

struct Archiver {
  std::vector<std::string> command;
  fs::path archive;
  std::vector<double> seconds = {};

  void measure() {
    fs::remove(archive);
    ::sync();  // what was written before is not this run's to wait for
    const bench::Cost cost = bench::run(command);
    seconds.push_back(cost.wall.count());
  }
  [[nodiscard]] double median() const { return bench::median(seconds); }
  [[nodiscard]] double size() const { return static_cast<double>(fs::file_size(archive)); }
  void print(const char* name) const { std::printf("%-8s %8.3f s  %10.0f bytes\n", name, median(), size()); }
};

}  // namespace

/// usage: archive_ratio QUILLMEND.app [FOLDER]
/// How long the bundle's archiver takes for 1 GiB of logs against `zip -r -6`, five times each in turn, and
/// how large its archive is. Needs 2 GiB of room in FOLDER (else in the folder for temporary files). Ends
/// with 2 where a ratio is over its limit.
int main(int argc, char** argv) try {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: archive_ratio QUILLMEND.app [FOLDER]\n");
    return 64;
  }
  const Workplace place(fs::absolute(argc == 3 ? fs::path(argv[2]) : fs::temp_directory_path()));
  const std::string logs = place.path() / "logs";
  writeLogs(logs);
  const std::string ditto = fs::absolute(argv[1]) / "Contents/SharedSupport/ditto";
  const std::string ourArchive = place.path() / "ours.zip";
  const std::string theirArchive = place.path() / "theirs.zip";
  Archiver ours{.command = {ditto, "-ck", "--keepParent", logs, ourArchive}, .archive = ourArchive};
  Archiver theirs{.command = {"/usr/bin/zip", "-q", "-r", "-6", theirArchive, logs}, .archive = theirArchive};
  for (int round = 0; round < times; ++round) {
    ours.measure();
    theirs.measure();
  }
  ours.print("ditto");
  theirs.print("zip -r");
  const double time = ours.median() / theirs.median();
  const double size = ours.size() / theirs.size();
  std::printf("time     %8.3f    (median of %d, at most %.2f)\n", time, times, mostTime);
  std::printf("size     %8.3f    (at most %.2f)\n", size, mostSize);
  return time <= mostTime && size <= mostSize ? 0 : 2;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
