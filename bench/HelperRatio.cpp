#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ground.h"
#include "bench/Ratio.h"

namespace {

namespace fs = std::filesystem;

constexpr int kTimes = 5;
constexpr std::size_t kFilesAFolder = 500;
constexpr mode_t kRightMode = 0640;
constexpr mode_t kWrongMode = 0600;
constexpr uid_t kOwner = 1;  // "daemon", which every system has

void check(int status, const std::string& what) {
  if (status != 0) throw std::runtime_error("cannot make " + what);
}

std::string fileName(std::size_t number) {
  return "helper-ratio." + std::to_string(number);
}

void makeFile(const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kWrongMode);
  check(file < 0 ? -1 : ::close(file), path);
}

std::string fileInTree(const std::string& tree, std::size_t number) {
  return tree + "/" + std::to_string(number / kFilesAFolder) + "/" + fileName(number);
}

void makeTree(const std::string& tree, std::size_t files) {
  for (std::size_t number = 0; number < files; ++number) {
    const std::string path = fileInTree(tree, number);
    if (number % kFilesAFolder == 0) fs::create_directories(fs::path(path).parent_path());
    makeFile(path);
  }
}

void makeFlat(const std::string& folder, std::size_t files) {
  fs::create_directory(folder);
  for (std::size_t number = 0; number < files; ++number) makeFile(folder + "/" + fileName(number));
}

/// Every other entry as the tools shall find it wrong.
void spoil(const std::string& tree, std::size_t files, const std::function<int(const char*, bool)>& set) {
  for (std::size_t number = 0; number < files; ++number) {
    const std::string path = fileInTree(tree, number);
    check(set(path.c_str(), number % 2 == 0), path);
  }
}

using Preparation = std::function<void()>;

/// Both in turn, prepared before each.
bool compare(const char* what, const char* peer, double limit, const std::vector<std::string>& ours,
             const std::vector<std::string>& theirs, const Preparation& prepare) {
  const auto cost = [&prepare](const std::vector<std::string>& command) {
    prepare();
    ::sync();
    return bench::run(command);
  };
  long memory = 0;
  const auto runOurs = [&] {
    const bench::Cost one = cost(ours);
    memory = std::max(memory, one.peakMemory);
    return one.wall.count();
  };
  const auto times = bench::compareInTurn(
      runOurs, [&] { return cost(theirs).wall.count(); }, kTimes);
  const double ratio = times.subject / times.peer;
  std::printf("%-24s %8.3f s, %6ld KiB; %-10s %8.3f s; ratio %6.3f    (median of %d, at most %.2f)\n", what,
              times.subject, memory, peer, times.peer, ratio, kTimes, limit);
  return ratio <= limit;
}

bool compareModes(const std::string& helpers, const bench::Ground& ground, std::size_t files) {
  const std::string tree = ground / "tree";
  return compare("chmodtool -R", "chmod -R", 0.6, {helpers + "/chmodtool", "-R", "g+r", tree},
                 {"/bin/chmod", "-R", "g+r", tree}, [&] {
                   spoil(tree, files, [](const char* path, bool isRight) {
                     return ::chmod(path, isRight ? kRightMode : kWrongMode);
                   });
                 });
}

bool compareOwners(const std::string& helpers, const bench::Ground& ground, std::size_t files) {
  const std::string tree = ground / "tree";
  const std::string owner = std::to_string(kOwner) + ":" + std::to_string(kOwner);
  return compare("chowntool -R", "chown -R", 0.6, {helpers + "/chowntool", "-R", owner, tree},
                 {"/bin/chown", "-R", owner, tree}, [&] {
                   spoil(tree, files, [](const char* path, bool isRight) {
                     return ::lchown(path, isRight ? kOwner : 0, isRight ? kOwner : 0);
                   });
                 });
}

/// Where trashtool puts what is in nobody's home while nobody is at the console.
std::string trashOfRoot() {
  const passwd* const root = ::getpwuid(0);
  if (root == nullptr) throw std::runtime_error("root has no account");
  return std::string(root->pw_dir) + "/.Trash";
}

/// What this run has put there, and no more.
void emptyTrash(std::size_t files) {
  const std::string trash = trashOfRoot();
  for (std::size_t number = 0; number < files; ++number) {
    ::unlink((trash + "/" + fileName(number)).c_str());
  }
}

bool compareTrash(const std::string& helpers, const bench::Ground& ground, std::size_t files) {
  const std::string folder = ground / "flat";
  const std::string moved = ground / "moved";
  const std::string data = ground / "data";
  const auto clean = [&] {
    for (const auto& used : {folder, moved, data}) fs::remove_all(used);
    emptyTrash(files);
  };
  const auto prepare = [&] {
    clean();
    for (const auto& needed : {moved, data}) fs::create_directory(needed);
    makeFlat(folder, files);
  };
  const std::vector<std::string> ours = {helpers + "/trashtool", "-dircontents", folder};
  const std::string all = "find " + folder + " -mindepth 1 -maxdepth 1 -exec ";
  const bool isFast = compare("trashtool -dircontents", "mv", 1.0, ours,
                              {"/bin/sh", "-c", all + "mv -t " + moved + " {} +"}, prepare);
  const bool isMuchFaster =
      compare("trashtool -dircontents", "gio trash", 0.2, ours,
              {"/bin/sh", "-c", "XDG_DATA_HOME=" + data + " exec " + all + "gio trash {} +"}, prepare);
  clean();
  return isFast && isMuchFaster;
}

/// The full folder is the same one each time, brought back from wherever the run before has put it.
bool compareSpool(const std::string& helpers, const bench::Ground& ground, std::size_t files) {
  const std::string name = "helper-ratio-spool";
  const std::string spool = ground / name;
  const std::string full = ground / "full";
  const std::string moved = ground / "moved";
  makeFlat(full, files);
  const auto bringBack = [&] {
    if (fs::exists(moved)) fs::rename(moved, full);
    for (const auto& entry : fs::directory_iterator(trashOfRoot())) {
      if (entry.path().filename().string().starts_with(name)) fs::rename(entry.path(), full);
    }
  };
  const auto prepare = [&] {
    bringBack();
    fs::remove_all(spool);
    fs::rename(full, spool);
  };
  const bool isFast = compare("trashtool -spooldir", "mv", 1.5, {helpers + "/trashtool", "-spooldir", spool},
                              {"/bin/mv", spool, moved}, prepare);
  bringBack();
  return isFast;
}

}  // namespace

/// usage: helper_ratio HELPERS [ENTRIES]
/// How long the root helpers take against the tools that people use for the same: trees of that many entries
/// (a million) to be changed, half of them right already, a tenth of it to be moved to the trash. Needs root,
/// nobody at the console, and gio(1). Ends with 2 where a ratio is over its limit.
int main(int argc, char** argv) try {
  if (argc < 2 || argc > 3 || ::geteuid() != 0) {
    std::fprintf(stderr, "usage, as root: helper_ratio HELPERS [ENTRIES]\n");
    return 64;
  }
  const std::string helpers = fs::absolute(argv[1]).string();
  const std::size_t entries = argc == 3 ? std::stoul(argv[2]) : 1'000'000;
  const bench::Ground ground("/var/spool");  // where the tools work
  fs::create_directories(trashOfRoot());
  makeTree(ground / "tree", entries);
  const bool areModesFast = compareModes(helpers, ground, entries);
  const bool areOwnersFast = compareOwners(helpers, ground, entries);
  fs::remove_all(ground / "tree");
  const bool isTrashFast = compareTrash(helpers, ground, entries / 10);
  const bool isSpoolFast = compareSpool(helpers, ground, entries);
  return areModesFast && areOwnersFast && isTrashFast && isSpoolFast ? 0 : 2;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
