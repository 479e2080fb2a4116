#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ground.h"
#include "bench/Ratio.h"

namespace {

namespace fs = std::filesystem;

constexpr double kLeastSize = 0.90;
constexpr double kMostSize = 1.05;

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
void writeLogs(const fs::path& folder, std::uint64_t total) {
  Log log;
  std::uint64_t written = 0;
  unsigned files = 0;
  for (; written < total; ++files) {
    const std::uint64_t size =
        files % 20 == 0 ? std::uint64_t{8} << 20U : std::uint64_t{1024} << log.number(11);
    const std::string place = std::to_string(files / 50) + "/" + std::to_string(files) + ".log";
    written += writeFile(folder / place, size, log);
  }
}

double secondsToPack(const std::vector<std::string>& command, const fs::path& archive) {
  fs::remove(archive);
  ::sync();  // what was written before is not this run's to wait for
  return bench::run(command).wall.count();
}

/// Both archives read back, and ours hardly larger: a quick one that packs less well is not the same work.
void checkArchives(const std::string& ours, const std::string& theirs) {
  for (const auto& archive : {ours, theirs}) bench::run({"/usr/bin/unzip", "-tqq", archive});
  const double size = static_cast<double>(fs::file_size(ours)) / static_cast<double>(fs::file_size(theirs));
  bench::require(size >= kLeastSize && size <= kMostSize, "the archives are not of one size");
}

bench::Medians measure(std::size_t mebibytes, int times) {
  const bench::Ground ground;
  const std::string logs = ground / "logs";
  writeLogs(logs, std::uint64_t{mebibytes} << 20U);
  const std::string ours = ground / "ours.zip";
  const std::string theirs = ground / "theirs.zip";
  const std::string ditto = bench::builtBundle("Contents/SharedSupport/ditto");
  const auto medians = bench::compareInTurn(
      [&] {
        return secondsToPack({ditto, "-ck", "--keepParent", logs, ours}, ours);
      },
      [&] {
        return secondsToPack({"/usr/bin/zip", "-q", "-r", "-6", theirs, logs}, theirs);
      },
      times);
  checkArchives(ours, theirs);
  return medians;
}

}  // namespace

/// How long the bundle's archiver takes for logs (sizes in MiB) against `zip -r -6`; how to call it says
/// bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv, {{"archive", measure}});
}
