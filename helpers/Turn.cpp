#include "helpers/Turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

namespace helpers {
namespace {

using platform::UniqueDescriptor;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

void interrupt(int /*signal*/) {}

/// While it lives a wait ends, EINTR, when the time is over, and at a signal that asks the tool to end.
class InterruptedWait {
 public:
  explicit InterruptedWait(milliseconds time) {
    struct sigaction action {};
    action.sa_handler = interrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, &alarm_);
    for (std::size_t i = 0; i < kWishes.size(); ++i) {
      sigaction(kWishes.at(i), nullptr, &wishes_.at(i));
      struct sigaction interrupting = wishes_.at(i);
      interrupting.sa_flags &= ~SA_RESTART;
      sigaction(kWishes.at(i), &interrupting, nullptr);
    }
    // Again and again, because the first may come just before the wait begins.
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(time - seconds);
    const itimerval times{{1, 0},
                          {static_cast<time_t>(seconds.count()),
                           static_cast<suseconds_t>(std::max<std::int64_t>(rest.count(), 1))}};
    setitimer(ITIMER_REAL, &times, nullptr);
  }
  ~InterruptedWait() {
    const itimerval none{};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &alarm_, nullptr);
    for (std::size_t i = 0; i < kWishes.size(); ++i) sigaction(kWishes.at(i), &wishes_.at(i), nullptr);
  }
  InterruptedWait(const InterruptedWait&) = delete;
  InterruptedWait& operator=(const InterruptedWait&) = delete;

 private:
  static constexpr std::array<int, 3> kWishes{SIGTERM, SIGINT, SIGHUP};

  struct sigaction alarm_ {};
  std::array<struct sigaction, kWishes.size()> wishes_{};
};

bool isRootsAlone(const FileStatus& folder) {
  const bool groupMayOpen = (folder.mode & S_IRGRP) != 0 && folder.group != 0;
  return folder.isFolder() && folder.owner == 0 && !groupMayOpen && (folder.mode & S_IROTH) == 0;
}

UniqueDescriptor openRootsFolder(const Surroundings& surroundings) {
  const auto root = std::find_if(surroundings.accounts.begin(), surroundings.accounts.end(),
                                 [](const Account& account) { return account.user == 0; });
  if (geteuid() != 0 || root == surroundings.accounts.end()) return {};
  const auto home = locate(surroundings, root->home, LastLink::follow);
  if (!home || !isRootsAlone(home.value().status())) return {};
  const int held = home.value().self().descriptor.get();
  return UniqueDescriptor(openat(held, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// In the system's queue, which a wait that is interrupted would leave: so it is interrupted at the end
/// alone.
bool waitForLock(int folder, milliseconds patience) {
  if (flock(folder, LOCK_EX | LOCK_NB) == 0) return true;
  const auto deadline = steady_clock::now() + patience;
  const InterruptedWait wait(patience);
  while (!stopRequested()) {
    if (flock(folder, LOCK_EX) == 0) return true;
    if (errno != EINTR || steady_clock::now() >= deadline) return false;
  }
  return false;
}

}  // namespace

Turn::Turn(const Surroundings& surroundings, Report& report, milliseconds patience)
    : folder_(openRootsFolder(surroundings)) {
  if (!folder_) return;
  isHeld_ = waitForLock(folder_.get(), patience);
  if (isHeld_ || stopRequested()) return;
  report.warning("another change of owners or permissions does not end, going on beside it");
}

}  // namespace helpers
