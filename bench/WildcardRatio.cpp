#include <glob.h>

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

using Seconds = std::chrono::duration<double>;

constexpr int folders = 400;
constexpr int filesInEach = 250;
constexpr int times = 5;
constexpr double limit = 1.0;

/// 100,000 entries in folders in folders.
void makeTree(const std::string& root) {
  for (int number = 0; number < folders; ++number) {
    const std::string folder =
        root + "/Library" + std::to_string(number / 20) + "/com.example." + std::to_string(number);
    std::filesystem::create_directories(folder);
    for (int file = 0; file < filesInEach; ++file) {
      std::ofstream(folder + "/com.example." + std::to_string(file) + ".plist");
    }
  }
}

template <typename Expand>
double timeOf(Expand expand) {
  const auto start = std::chrono::steady_clock::now();
  const std::size_t count = expand();
  const Seconds taken = std::chrono::steady_clock::now() - start;
  if (count != std::size_t{folders} * filesInEach) throw std::runtime_error("not every entry was found");
  return taken.count();
}

std::size_t byGlob(const std::string& pattern) {
  glob_t found{};
  if (::glob(pattern.c_str(), 0, nullptr, &found) != 0) return 0;
  const std::size_t count = found.gl_pathc;
  ::globfree(&found);
  return count;
}

int compare() {
  const support::TemporaryFolder tree;
  makeTree(tree.path());
  const std::string pattern = tree.path() + "/Library*/com.*/*.plist";
  std::vector<double> ours;
  std::vector<double> theirs;
  for (int round = 0; round < times; ++round) {
    ours.push_back(timeOf([&] { return TGFileManager::filesMatchingWildcardPath(pattern).size(); }));
    theirs.push_back(timeOf([&] { return byGlob(pattern); }));
  }
  const double subject = bench::median(ours);
  const double peer = bench::median(theirs);
  std::printf("filesMatchingWildcardPath      %9.4f s\n", subject);
  std::printf("glob(3)                        %9.4f s\n", peer);
  std::printf("ratio                          %9.4f    (median of %d, at most %.2f)\n", subject / peer, times,
              limit);
  return subject / peer <= limit ? 0 : 2;
}

}  // namespace

/// usage: wildcard_ratio
/// How long TGFileManager takes to find 100,000 entries in nested folders by a pattern against glob(3). Ends
/// with 2 where the ratio is over its limit.
int main() try { return compare(); } catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
