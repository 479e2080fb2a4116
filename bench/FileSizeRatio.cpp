#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "services/TGFileManager.h"

namespace {

constexpr std::size_t kFilesAFolder = 100;

/// That many files of a few bytes, in folders in folders; answers how many bytes all of it holds.
std::uint64_t makeTree(const std::string& root, std::size_t files) {
  std::uint64_t bytes = 0;
  for (std::size_t number = 0; number < files; ++number) {
    const std::size_t folder = number / kFilesAFolder;
    const std::string inside = root + "/" + std::to_string(folder / 50) + "/" + std::to_string(folder);
    if (number % kFilesAFolder == 0) std::filesystem::create_directories(inside);
    const std::string content = std::to_string(number % kFilesAFolder);
    std::ofstream(inside + "/Quillmend." + content + ".log") << content;
    bytes += content.size();
  }
  return bytes;
}

/// This program again, as the subject: a process of its own, as its peer is one.
int answer(const std::string& root, const std::string& bytes) {
  return TGFileManager::fileSize(root) == std::stoull(bytes) ? 0 : 1;
}

bench::Medians measure(std::size_t files, int times) {
  const bench::Ground tree;
  const std::string bytes = std::to_string(makeTree(tree.path(), files));
  const std::string program = bench::ownFolder() / "file_size_ratio";
  return bench::compareInTurn(
      [&] {
        return bench::run({program, "--is-size-of", tree.path(), bytes}).wall.count();
      },
      [&] {
        return bench::run({"/usr/bin/du", "-s", "--apparent-size", tree.path()}).wall.count();
      },
      times);
}

}  // namespace

/// How long TGFileManager takes for the size of a tree of files against du(1); how to call it says
/// bench::measureRows().
int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--is-size-of") return answer(argv[2], argv[3]);
  return bench::measureRows(argc, argv, {{"file-size", measure}});
}
