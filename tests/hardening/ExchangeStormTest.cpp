// A user exchanges what lies on the way of a tool of root's as fast as can be, while the tool is at it.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <thread>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/hardening/AttackedComputer.h"

namespace hardening {
namespace {

namespace fs = std::filesystem;
using platform::UniqueDescriptor;
using ::testing::IsEmpty;

/// 100,000, or what QUILLMEND_HARDENING_SWAPS says; see README.md.
long wantedSwaps() {
  const char* wanted = std::getenv("QUILLMEND_HARDENING_SWAPS");
  return wanted == nullptr ? 100'000 : std::atol(wanted);
}

/// So many runs at most behind those exchanges, until one gets through: in the thick of them that is chance,
/// of some forms one in fifty, fewer on a busy machine. Alice rests a little longer with each of these.
constexpr int kCalmerRuns = 50;

struct Pair {
  std::string folder;
  std::string name;
  std::string leadsTo;
};

/// What alice can exchange: everything below her home. In her trash, what comes newly.
std::vector<Pair> pairsOf(const Form& form) {
  const std::string outside = "/outside/alice/jobs/tree";
  const fs::path tree = form.tree;
  const bool isVolume = tree == "/Users/alice/disk";
  std::vector<Pair> pairs = {{tree, "sub", outside + "/sub"},
                             {tree, "file", outside + "/file"},
                             {tree / "sub", "inner", outside + "/sub/inner"},
                             {"/Users/alice", ".Trash", "/outside/trash"}};
  if (!isVolume) pairs.push_back({tree.parent_path(), tree.filename(), outside});
  if (!isVolume) pairs.push_back({tree.parent_path(), "." + tree.filename().string() + ".emptying", outside});
  if (isVolume) pairs.push_back({tree, ".Trashes", "/outside/trash"});
  if (tree == "/Users/alice/jobs/tree") {
    pairs.push_back({"/Users/alice", "jobs", "/outside/alice/jobs"});
    pairs.push_back({tree / "sub", "second", "secret"});  // of the same volume alone
  }
  return pairs;
}

std::string away(const std::string& name) {
  return name + ".away";
}

/// What the test and its attacker share.
struct Signals {
  std::atomic<int> round = 0;   ///< counts up for each; odd while the attacker shall be at it
  std::atomic<int> obeyed = 0;  ///< the round that the attacker knows of
  std::atomic<long> swaps = 0;
  std::atomic<int> rest = 0;  ///< microseconds before each exchange
};

/// The process of alice's.
class Attacker {
 public:
  Attacker(const AttackedComputer& computer, const std::vector<Pair>& pairs)
      : signals_(new (::mmap(nullptr, sizeof(Signals), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                             0)) Signals),
        pid_(::fork()) {
    if (pid_ == 0) attack(computer, pairs);
  }
  ~Attacker() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    ::munmap(signals_, sizeof(Signals));
  }
  Attacker(const Attacker&) = delete;
  Attacker& operator=(const Attacker&) = delete;

  void begin() { next(); }
  void end() { next(); }
  [[nodiscard]] long swaps() const { return signals_->swaps; }
  void restLonger() { signals_->rest = signals_->rest * 5 / 4 + 20; }

 private:
  void next() {
    const int round = ++signals_->round;
    while (signals_->obeyed != round) std::this_thread::sleep_for(std::chrono::microseconds(20));
  }

  [[noreturn]] void attack(const AttackedComputer& computer, const std::vector<Pair>& pairs) {
    computer.enter();
    const bool isAlice = ::setgroups(0, nullptr) == 0 && ::setgid(AttackedComputer::kAlice) == 0 &&
                         ::setuid(AttackedComputer::kAlice) == 0;
    while (isAlice) {
      const int round = signals_->round;
      if (round % 2 == 1) exchangeUntilTold(round, pairs);
      signals_->obeyed = signals_->round.load();
      if (round % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    ::_exit(1);
  }

  void exchangeUntilTold(int round, const std::vector<Pair>& pairs) {
    std::vector<UniqueDescriptor> folders;
    for (const Pair& pair : pairs) {
      folders.emplace_back(::open(pair.folder.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW));
    }
    const UniqueDescriptor trash(::open("/Users/alice/.Trash", O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    signals_->obeyed = round;
    for (unsigned turn = 0; signals_->round == round; ++turn) {
      rest(round);
      const std::size_t which = turn % pairs.size();
      exchange(folders[which].get(), pairs[which].name, away(pairs[which].name));
      if (turn % 32 == 0) exchangeNewcomers(trash.get());
    }
  }

  void rest(int round) const {
    using std::chrono::microseconds;
    if (signals_->rest == 0) return;
    const auto end = std::chrono::steady_clock::now() + microseconds(signals_->rest);
    while (signals_->round == round && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(microseconds(20));
    }
  }

  void exchange(int folder, const std::string& one, const std::string& other) {
    if (::renameat2(folder, one.c_str(), folder, other.c_str(), RENAME_EXCHANGE) == 0 ||
        ::renameat2(folder, other.c_str(), folder, one.c_str(), RENAME_NOREPLACE) == 0) {
      ++signals_->swaps;
    }
  }

  void exchangeNewcomers(int trash) {
    const int listed = ::openat(trash, ".", O_RDONLY | O_DIRECTORY);
    DIR* const stream = listed < 0 ? nullptr : ::fdopendir(listed);
    if (stream == nullptr) return;
    while (const dirent* entry = ::readdir(stream)) {
      const std::string name = entry->d_name;
      if (name.starts_with("planted") || name == "." || name == "..") continue;
      const std::string link = "planted" + std::to_string(++planted_);
      if (::symlinkat("/outside/alice/jobs/tree", trash, link.c_str()) == 0) exchange(trash, name, link);
    }
    ::closedir(stream);
  }

  Signals* signals_;
  pid_t pid_;
  long planted_ = 0;
};

class ExchangeStormTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// A second name of root's file is made by root: only where hard links are not protected could alice make
  /// it.
  void prepare(const std::vector<Pair>& pairs) const {
    computer_.restore();
    for (const Pair& pair : pairs) {
      const std::string link = computer_.path(pair.folder + "/" + away(pair.name));
      const bool made = pair.leadsTo == "secret"
                            ? ::link(computer_.path("/outside/secret").c_str(), link.c_str()) == 0
                            : ::symlink(pair.leadsTo.c_str(), link.c_str()) == 0;
      EXPECT_TRUE(made) << link;
      static_cast<void>(pair.leadsTo == "secret" ||
                        ::lchown(link.c_str(), AttackedComputer::kAlice, AttackedComputer::kAlice) == 0);
    }
  }

  /// Of root's file the number of names and the time of change are alice's doing.
  [[nodiscard]] Snapshot outside() const {
    Snapshot all = computer_.outside();
    all["/outside/secret"] = described(computer_.path("/outside/secret"), Changed::ignored);
    return all;
  }

  /// By its status or, which verbs do, by what it says of one of its arguments: that it is not to be reached.
  static bool isRefused(const Finished& finished) {
    const std::vector<std::string>& command = GetParam().command;
    const std::string tool = fs::path(command.front()).filename().string() + ": ";
    return finished.exitStatus == 77 ||
           std::any_of(command.begin() + 1, command.end(), [&](const std::string& argument) {
             return finished.errors.starts_with(tool + argument + ": ");
           });
  }

  /// chown, chowntool and chmodtool tell of the links that lie in the tree for the exchanges, and change the
  /// rest.
  [[nodiscard]] bool isDone(const Finished& finished) const {
    if (GetParam().runs("chown") || GetParam().runs("chowntool")) return isAnyFile(" 4300:");
    if (GetParam().runs("chmodtool")) return isAnyFile(": 100777 ");
    return finished.exitStatus == 0;
  }

  [[nodiscard]] bool isAnyFile(const std::string& described) const {
    const Snapshot files = computer_.files();
    return std::any_of(files.begin(), files.end(),
                       [&](const auto& file) { return file.second.find(described) != std::string::npos; });
  }

  AttackedComputer computer_;
};

TEST_P(ExchangeStormTest, LeadsNothingOutsideTheTree) {
  const std::vector<Pair> pairs = pairsOf(GetParam());
  Attacker attacker(computer_, pairs);
  prepare(pairs);
  const Snapshot before = outside();
  int runs = 0;
  int refused = 0;
  int done = 0;
  int calmerRuns = 0;
  const auto mayEnd = [&] { return done > 0 || calmerRuns == kCalmerRuns; };
  while ((attacker.swaps() < wantedSwaps() || !mayEnd()) && !HasFailure()) {
    if (attacker.swaps() >= wantedSwaps()) {
      attacker.restLonger();
      ++calmerRuns;
    }
    prepare(pairs);
    attacker.begin();
    const Finished finished = computer_.run(GetParam().command);
    attacker.end();
    EXPECT_THAT(finished.exitStatus, ::testing::AnyOf(0, 1, 77)) << finished.errors;
    EXPECT_THAT(differences(before, outside()), IsEmpty()) << finished.errors;
    EXPECT_THAT(computer_.mixedFiles(), IsEmpty()) << finished.errors;
    refused += isRefused(finished) ? 1 : 0;
    done += isDone(finished) ? 1 : 0;
    ++runs;
  }
  RecordProperty("runs", runs);
  RecordProperty("refused", refused);
  RecordProperty("done", done);
  RecordProperty("calmerRuns", calmerRuns);
  EXPECT_GT(done, 0) << "what refuses all is led nowhere either";
  std::printf("%ld exchanges during %d runs, %d of them calmer, %d refused, %d done\n", attacker.swaps(),
              runs, calmerRuns, refused, done);
}

INSTANTIATE_TEST_SUITE_P(Forms, ExchangeStormTest, ::testing::ValuesIn(allForms()), nameOfForm);
INSTANTIATE_TEST_SUITE_P(Verbs, ExchangeStormTest, ::testing::ValuesIn(verbForms()), nameOfForm);

}  // namespace
}  // namespace hardening
