#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ratio.h"
#include "services/TGFileManager.h"
#include "tests/support/TemporaryFolder.h"

namespace {

constexpr int folders = 2'000;
constexpr int filesInEach = 100;
constexpr int times = 5;
constexpr double limit = 1.0;

/// 200,000 files of a few bytes, in folders in folders.
void makeTree(const std::string& root) {
  for (int number = 0; number < folders; ++number) {
    const std::string folder = root + "/" + std::to_string(number / 50) + "/" + std::to_string(number);
    std::filesystem::create_directories(folder);
    for (int file = 0; file < filesInEach; ++file) {
      std::ofstream(folder + "/Quillmend." + std::to_string(file) + ".log") << file;
    }
  }
}

/// This program again, as the subject: a process of its own, as its peer is one.
int measure(const std::string& root) {
  return TGFileManager::fileSize(root) > 0 ? 0 : 1;
}

int compare(const std::string& program) {
  const support::TemporaryFolder tree;
  makeTree(tree.path());
  const auto result = bench::compare({program, "--size-of", tree.path()},
                                     {"/usr/bin/du", "-s", "--apparent-size", tree.path()}, times);
  std::printf("fileSize of 200,000 files      %9.4f s\n", result.subject);
  std::printf("du -s --apparent-size          %9.4f s\n", result.peer);
  std::printf("ratio                          %9.4f    (median of %d, at most %.2f)\n", result.ratio, times,
              limit);
  return result.ratio <= limit ? 0 : 2;
}

}  // namespace

/// usage: file_size_ratio
/// How long TGFileManager takes for the size of a tree of 200,000 files against du(1). Ends with 2 where the
/// ratio is over its limit.
int main(int argc, char** argv) try {
  if (argc == 3 && std::string(argv[1]) == "--size-of") return measure(argv[2]);
  return compare(std::filesystem::read_symlink("/proc/self/exe"));
} catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
