#include "platform/linux/LinuxChildren.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>

#include "platform/linux/ChildReaper.h"
#include "platform/linux/ProcessDescriptor.h"
#include "platform/posix/Pipe.h"
#include "platform/posix/SpawnedProgram.h"

namespace platform {
namespace {

constexpr std::size_t kLargePage = 2UL << 20;
/// The allocator has mapped as much for this alone, and lets go of the whole mapping (mallopt(3),
/// M_MMAP_THRESHOLD).
constexpr std::size_t kLeastOfItsOwn = 32UL << 20;

class ChildOfADescriptor final : public RunningChild {
 public:
  explicit ChildOfADescriptor(UniqueDescriptor pidfd) : pidfd_(std::move(pidfd)) {}
  ~ChildOfADescriptor() override {
    if (!ChildOfADescriptor::status()) reapWhenEnded(std::move(pidfd_));
  }
  ChildOfADescriptor(const ChildOfADescriptor&) = delete;
  ChildOfADescriptor& operator=(const ChildOfADescriptor&) = delete;

  std::optional<int> status() override {
    const std::scoped_lock lock(mutex_);
    if (status_) return status_;
    siginfo_t result{};
    if (::waitid(P_PIDFD, static_cast<id_t>(pidfd_.get()), &result, WEXITED | WNOHANG) != 0) {
      status_ = -1;
    } else if (result.si_pid != 0) {
      status_ = result.si_status;
    }
    return status_;
  }
  int descriptor() const override { return pidfd_.get(); }
  void terminate() override { sendSignal(pidfd_, SIGTERM); }

 private:
  UniqueDescriptor pidfd_;
  std::mutex mutex_;  ///< guards what follows
  std::optional<int> status_;
};

}  // namespace

foundation::Result<std::unique_ptr<RunningChild>> watchByDescriptor(pid_t child) {
  UniqueDescriptor pidfd = raisedDescriptor(openProcess(child));
  if (!pidfd) {
    const auto reason = foundation::systemError(errno, "pidfd");
    endProgram(child);
    return reason;
  }
  return std::unique_ptr<RunningChild>(std::make_unique<ChildOfADescriptor>(std::move(pidfd)));
}

bool makePipeHold(int pipe, std::size_t bytes) {
  return ::fcntl(pipe, F_SETPIPE_SZ, static_cast<int>(bytes)) >= static_cast<int>(bytes);
}

void useLargePages(char* memory, std::size_t bytes) {
  if (bytes < kLeastOfItsOwn) return;
  const std::size_t before =
      (kLargePage - reinterpret_cast<std::uintptr_t>(memory) % kLargePage) % kLargePage;
  ::madvise(memory + before, (bytes - before) / kLargePage * kLargePage, MADV_HUGEPAGE);
}

}  // namespace platform
