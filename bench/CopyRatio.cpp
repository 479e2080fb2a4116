#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "platform/posix/TreeCopy.h"

namespace {

namespace fs = std::filesystem;

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
    const std::string path = inside + "/file " + std::to_string(i);
    std::ofstream(path, std::ios::binary).write(bytes.data(), length);
    if (i % 7 == 0) ::chmod(path.c_str(), 0640);
  }
}

/// What tells a whole copy from a part of one.
struct Extent {
  std::uint64_t entries = 0;
  std::uint64_t bytes = 0;
  std::uint64_t modes = 0;  ///< their sum
  bool operator==(const Extent&) const = default;

  void add(const fs::directory_entry& entry) {
    ++entries;
    if (entry.is_regular_file()) bytes += entry.file_size();
    modes += static_cast<std::uint64_t>(entry.status().permissions());
  }
};

Extent extentOf(const std::string& path) {
  Extent extent;
  extent.add(fs::directory_entry(path));
  if (!fs::is_directory(path)) return extent;
  for (const auto& entry : fs::recursive_directory_iterator(path)) extent.add(entry);
  return extent;
}

void copyOurs(const std::string& from, const std::string& to) {
  // With the progress that a user is shown, as the program copies.
  const auto copied =
      platform::copyItemAtPath(from, to, {.onProgress = [](const platform::CopyProgress&) { return true; }});
  if (!copied) throw std::runtime_error(copied.error().description);
}

bench::Medians compare(const std::string& from, const std::string& to, int times) {
  const Extent whole = extentOf(from);
  const auto measure = [&](const std::function<void()>& copy) {
    ::sync();  // what was written before is not this run's to wait for
    const double seconds = bench::secondsOf(copy);
    bench::require(extentOf(to) == whole, "the copy is not whole");
    fs::remove_all(to);
    return seconds;
  };
  return bench::compareInTurn([&] { return measure([&] { copyOurs(from, to); }); },
                              [&] { return measure([&] {
                                      bench::run({"/bin/cp", "-a", from, to});
                                    }); },
                              times);
}

bench::Medians measureSmall(std::size_t files, int times) {
  const bench::Ground ground;
  makeSmallFiles(ground / "small", files);
  return compare(ground / "small", ground / "copy", times);
}

bench::Medians measureLarge(std::size_t mebibytes, int times) {
  const bench::Ground ground;
  makeLargeFile(ground / "large", mebibytes);
  return compare(ground / "large", ground / "copy", times);
}

}  // namespace

/// How long a copy of many small files and one of a large one (sizes in MiB) takes against cp -a; how to call
/// it says bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv, {{"copy-small", measureSmall}, {"copy-large", measureLarge}});
}
