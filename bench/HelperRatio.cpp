#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Ground.h"
#include "bench/Ratio.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFilesAFolder = 500;
constexpr mode_t kRightMode = 0640;
constexpr mode_t kWrongMode = 0600;
constexpr uid_t kOwner = 1;                   // "daemon", which every system has
constexpr const char* kPlace = "/var/spool";  // where the tools work

std::string helper(const std::string& name) {
  bench::requireRoot();
  return bench::builtBundle("Contents/Helpers/" + name);
}

std::string fileName(std::size_t number) {
  return "helper-ratio." + std::to_string(number);
}

void makeFile(const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kWrongMode);
  bench::require(file >= 0 && ::close(file) == 0, "cannot make " + path);
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

std::size_t countIn(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

using Work = std::function<void()>;
using Command = std::vector<std::string>;

/// Both in turn, prepared before each, and looked at after each.
bench::Medians compare(const Command& ours, const Command& theirs, const Work& prepare, const Work& checkOurs,
                       const Work& checkTheirs, int times) {
  const auto cost = [&prepare](const Command& command, const Work& check) {
    prepare();
    ::sync();
    const double seconds = bench::run(command).wall.count();
    check();
    return seconds;
  };
  return bench::compareInTurn([&] { return cost(ours, checkOurs); },
                              [&] { return cost(theirs, checkTheirs); }, times);
}

/// A tree of which every other entry is as the tools shall find it wrong.
class Tree {
 public:
  using Set = std::function<int(const char* path, bool isRight)>;
  using IsRight = std::function<bool(const struct stat& status)>;

  explicit Tree(std::size_t files) : files_(files) { makeTree(path(), files); }

  [[nodiscard]] std::string path() const { return ground_ / "tree"; }
  void spoil(const Set& set) const {
    for (std::size_t number = 0; number < files_; ++number) {
      const std::string file = fileInTree(path(), number);
      bench::require(set(file.c_str(), number % 2 == 0) == 0, "cannot make " + file);
    }
  }
  void check(const IsRight& isRight) const {
    for (std::size_t number = 0; number < files_; ++number) {
      struct stat status {};
      const std::string file = fileInTree(path(), number);
      bench::require(::lstat(file.c_str(), &status) == 0 && isRight(status), "was not changed: " + file);
    }
  }

 private:
  bench::Ground ground_{kPlace};
  std::size_t files_;
};

bench::Medians measureModes(std::size_t files, int times) {
  const Command ours = {helper("chmodtool"), "-R", "g+r"};
  const Tree tree(files);
  const auto prepare = [&] {
    tree.spoil(
        [](const char* path, bool isRight) { return ::chmod(path, isRight ? kRightMode : kWrongMode); });
  };
  const auto check = [&] {
    tree.check([](const struct stat& status) { return (status.st_mode & 07777U) == kRightMode; });
  };
  return compare({ours[0], ours[1], ours[2], tree.path()}, {"/bin/chmod", "-R", "g+r", tree.path()}, prepare,
                 check, check, times);
}

bench::Medians measureOwners(std::size_t files, int times) {
  const std::string tool = helper("chowntool");
  const Tree tree(files);
  const std::string owner = std::to_string(kOwner) + ":" + std::to_string(kOwner);
  const auto prepare = [&] {
    tree.spoil([](const char* path, bool isRight) {
      return ::lchown(path, isRight ? kOwner : 0, isRight ? kOwner : 0);
    });
  };
  const auto check = [&] {
    tree.check([](const struct stat& status) { return status.st_uid == kOwner && status.st_gid == kOwner; });
  };
  return compare({tool, "-R", owner, tree.path()}, {"/bin/chown", "-R", owner, tree.path()}, prepare, check,
                 check, times);
}

/// Where trashtool puts what is in nobody's home while nobody is at the console.
std::string trashOfRoot() {
  const passwd* const root = ::getpwuid(0);
  if (root == nullptr) throw std::runtime_error("root has no account");
  std::string trash = std::string(root->pw_dir) + "/.Trash";
  fs::create_directories(trash);
  return trash;
}

/// A folder full of files, the places they are moved to, and root's trash less what this run has put there.
class FlatFolder {
 public:
  explicit FlatFolder(std::size_t files) : files_(files) {}
  ~FlatFolder() { emptyTrash(); }
  FlatFolder(const FlatFolder&) = delete;
  FlatFolder& operator=(const FlatFolder&) = delete;

  [[nodiscard]] std::string path() const { return ground_ / "flat"; }
  [[nodiscard]] std::string moved() const { return ground_ / "moved"; }
  [[nodiscard]] std::string data() const { return ground_ / "data"; }

  void prepare() const {
    for (const auto& used : {path(), moved(), data()}) fs::remove_all(used);
    emptyTrash();
    for (const auto& needed : {moved(), data()}) fs::create_directory(needed);
    makeFlat(path(), files_);
  }
  void checkTrash() const {
    for (std::size_t number = 0; number < files_; ++number) {
      bench::require(fs::exists(trash_ + "/" + fileName(number)), "not in the trash: " + fileName(number));
    }
    bench::require(fs::is_empty(path()), "files were left");
  }
  void check(const std::string& target) const {
    bench::require(countIn(target) == files_ && fs::is_empty(path()), "files were left");
  }

 private:
  void emptyTrash() const {
    for (std::size_t number = 0; number < files_; ++number) {
      ::unlink((trash_ + "/" + fileName(number)).c_str());
    }
  }

  bench::Ground ground_{kPlace};
  std::string trash_ = trashOfRoot();
  std::size_t files_;
};

/// find(1) calls its peers with as many names at once as a command line takes.
std::string callForAll(const std::string& folder, const std::string& command) {
  return "find " + folder + " -mindepth 1 -maxdepth 1 -exec " + command + " {} +";
}

bench::Medians measureMove(std::size_t files, int times) {
  const std::string tool = helper("trashtool");
  const FlatFolder folder(files);
  const std::string call = callForAll(folder.path(), "mv -t " + folder.moved());
  return compare(
      {tool, "-dircontents", folder.path()}, {"/bin/sh", "-c", "exec " + call}, [&] { folder.prepare(); },
      [&] { folder.checkTrash(); }, [&] { folder.check(folder.moved()); }, times);
}

bench::Medians measureGio(std::size_t files, int times) {
  const std::string tool = helper("trashtool");
  bench::require(fs::exists("/usr/bin/gio"), "there is no gio");
  const FlatFolder folder(files);
  const std::string call =
      "XDG_DATA_HOME=" + folder.data() + " exec " + callForAll(folder.path(), "gio trash");
  return compare(
      {tool, "-dircontents", folder.path()}, {"/bin/sh", "-c", call}, [&] { folder.prepare(); },
      [&] { folder.checkTrash(); }, [&] { folder.check(folder.data() + "/Trash/files"); }, times);
}

/// The full folder is the same one each time, brought back from wherever the run before has put it.
class SpoolFolder {
 public:
  explicit SpoolFolder(std::size_t files) : files_(files) { makeFlat(full_, files); }
  ~SpoolFolder() {
    std::error_code ignored;
    const std::string trashed = findInTrash();
    if (!trashed.empty()) fs::remove_all(trashed, ignored);
  }
  SpoolFolder(const SpoolFolder&) = delete;
  SpoolFolder& operator=(const SpoolFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return spool_; }
  [[nodiscard]] const std::string& moved() const { return moved_; }

  void prepare() {
    if (!place_.empty()) fs::rename(place_, full_);
    fs::remove_all(spool_);
    fs::rename(full_, spool_);
    place_.clear();
  }
  void checkTrash() {
    place_ = findInTrash();
    bench::require(!place_.empty() && countIn(place_) == files_, "not in the trash");
    bench::require(fs::is_empty(spool_), "files were left");
  }
  void checkMoved() {
    place_ = moved_;
    bench::require(countIn(moved_) == files_ && !fs::exists(spool_), "files were left");
  }

 private:
  [[nodiscard]] std::string findInTrash() const {
    const std::string name = fs::path(spool_).filename();
    for (const auto& entry : fs::directory_iterator(trash_)) {
      if (entry.path().filename().string().starts_with(name)) return entry.path();
    }
    return "";
  }

  bench::Ground ground_{kPlace};
  const std::string full_ = ground_ / "full";
  const std::string moved_ = ground_ / "moved";
  const std::string spool_ = ground_ / ("spool-" + std::to_string(::getpid()));
  const std::string trash_ = trashOfRoot();
  std::string place_;  ///< where the full folder lies after a run
  std::size_t files_;
};

bench::Medians measureSpool(std::size_t files, int times) {
  const std::string tool = helper("trashtool");
  SpoolFolder folder(files);
  return compare(
      {tool, "-spooldir", folder.path()}, {"/bin/mv", folder.path(), folder.moved()},
      [&] { folder.prepare(); }, [&] { folder.checkTrash(); }, [&] { folder.checkMoved(); }, times);
}

}  // namespace

/// How long the root helpers take against the tools that people use for the same: a tree of that many entries
/// to be changed, half of them right already, or a folder of as many to be moved to the trash. Needs root and
/// nobody at the console; how to call it says bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv,
                            {{"chmod", measureModes},
                             {"chown", measureOwners},
                             {"trash-mv", measureMove},
                             {"trash-gio", measureGio},
                             {"spooldir", measureSpool}});
}
