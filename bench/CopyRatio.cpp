#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "platform/posix/TreeCopy.h"

namespace {

namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;

constexpr int kTimes = 5;
constexpr double kLimit = 1.0;
constexpr std::size_t kMebibyte = 1UL << 20;
constexpr std::size_t kFilesAFolder = 500;

std::string noise(std::size_t length) {
  std::mt19937_64 numbers(length);
  std::string bytes(length, '\0');
  for (char& byte : bytes) byte = static_cast<char>(numbers());
  return bytes;
}

void makeLargeFile(const std::string& path, std::size_t mebibytes) {
  const std::string piece = noise(kMebibyte);
  std::ofstream file(path, std::ios::binary);
  for (std::size_t i = 0; i < mebibytes; ++i) file << piece;
}

/// As a user's folders are: up to 8 KiB each, some hundred in a folder.
void makeSmallFiles(const std::string& folder, std::size_t count) {
  const std::string bytes = noise(8192);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string inside = folder + "/" + std::to_string(i / kFilesAFolder);
    if (i % kFilesAFolder == 0) fs::create_directories(inside);
    const auto length = static_cast<std::streamsize>(1 + i * 127 % bytes.size());
    std::ofstream(inside + "/file " + std::to_string(i), std::ios::binary).write(bytes.data(), length);
  }
}

double timeOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return Seconds(std::chrono::steady_clock::now() - start).count();
}

void copyOurs(const std::string& from, const std::string& to) {
  // With the progress that a user is shown, as the program copies.
  const auto copied =
      platform::copyItemAtPath(from, to, {.onProgress = [](const platform::CopyProgress&) { return true; }});
  if (!copied) throw std::runtime_error(copied.error().description);
}

double ratio(const char* what, const std::string& from, const bench::Ground& ground) {
  const std::string to = ground / "copy";
  const auto measure = [&to](const std::function<void()>& copy) {
    ::sync();
    const double time = timeOf(copy);
    fs::remove_all(to);
    return time;
  };
  const auto times = bench::compareInTurn(
      [&] { return measure([&] { copyOurs(from, to); }); },
      [&] { return measure([&] {
              static_cast<void>(bench::run({"/bin/cp", "-a", from, to}));
            }); }, kTimes);
  const double value = times.subject / times.peer;
  std::printf("%-24s %8.3f s, cp -a %8.3f s, ratio %6.3f    (median of %d, at most %.2f)\n", what,
              times.subject, times.peer, value, kTimes, kLimit);
  return value;
}

}  // namespace

/// usage: copy_ratio FOLDER [MEBIBYTES FILES]
/// How long a copy of one file of 2 GiB and one of 50,000 small files takes against cp -a, on the file system
/// of that folder. Ends with 2 where a ratio is over its limit.
int main(int argc, char** argv) try {
  if (argc != 2 && argc != 4) {
    std::fprintf(stderr, "usage: copy_ratio FOLDER [MEBIBYTES FILES]\n");
    return 64;
  }
  const std::size_t mebibytes = argc == 4 ? std::stoul(argv[2]) : 2048;
  const std::size_t files = argc == 4 ? std::stoul(argv[3]) : 50'000;
  const bench::Ground ground(fs::absolute(argv[1]).string());
  makeSmallFiles(ground / "small", files);
  const double small = ratio("many small files", ground / "small", ground);
  fs::remove_all(ground / "small");
  makeLargeFile(ground / "large", mebibytes);
  const double large = ratio("one large file", ground / "large", ground);
  return small <= kLimit && large <= kLimit ? 0 : 2;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
