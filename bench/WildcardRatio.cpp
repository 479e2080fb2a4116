#include <glob.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "services/TGFileManager.h"

namespace {

constexpr std::size_t kFilesAFolder = 250;

/// That many entries in folders in folders.
void makeTree(const std::string& root, std::size_t entries) {
  for (std::size_t number = 0; number < entries; ++number) {
    const std::size_t place = number / kFilesAFolder;
    const std::string folder =
        root + "/Library" + std::to_string(place / 20) + "/com.example." + std::to_string(place);
    if (number % kFilesAFolder == 0) std::filesystem::create_directories(folder);
    std::ofstream(folder + "/com.example." + std::to_string(number % kFilesAFolder) + ".plist");
  }
}

std::size_t byGlob(const std::string& pattern) {
  glob_t found{};
  if (::glob(pattern.c_str(), 0, nullptr, &found) != 0) return 0;
  const std::size_t count = found.gl_pathc;
  ::globfree(&found);
  return count;
}

double timeOf(const std::function<std::size_t()>& expand, std::size_t entries) {
  std::size_t count = 0;
  const double seconds = bench::secondsOf([&] { count = expand(); });
  bench::require(count == entries, "not every entry was found");
  return seconds;
}

bench::Medians measure(std::size_t entries, int times) {
  const bench::Ground tree;
  makeTree(tree.path(), entries);
  const std::string pattern = tree / "Library*/com.*/*.plist";
  const auto ours = [&] { return TGFileManager::filesMatchingWildcardPath(pattern).size(); };
  return bench::compareInTurn([&] { return timeOf(ours, entries); },
                              [&] { return timeOf([&] { return byGlob(pattern); }, entries); }, times);
}

}  // namespace

/// How long TGFileManager takes to find entries in nested folders by a pattern against glob(3); how to call
/// it says bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv, {{"wildcard", measure}});
}
