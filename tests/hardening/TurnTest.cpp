// Tools of one repair at the same tree: nobody waits for the first before the second is started.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <future>

#include "tests/hardening/AttackedComputer.h"
#include "tests/support/PathStatus.h"
#include "tests/support/WaitingLocks.h"

namespace hardening {
namespace {

class TurnTest : public ::testing::Test {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// The second tool is started when the first is about to make its n-th change of an owner, and the first
  /// goes on (or ends there) once the second waits for it.
  Finished startMidWay(int change, int answer) {
    int changes = 0;
    return computer_.run(kChown, [&](const Call& now) {
      if (now.number != SYS_fchownat || ++changes != change) return kProceed;
      second_ = std::async(std::launch::async, [this] { return computer_.run(kChmod); });
      EXPECT_TRUE(support::waitUntilLockIsWaitedFor(computer_.path("/var/root"))) << "it does not wait";
      return answer;
    });
  }

  mode_t modeOfFile() const { return support::modeAt(computer_.path("/Users/alice/jobs/tree/file")); }

  const std::vector<std::string> kChown = {"/helpers/chowntool", "-R", "4300:4300", "/Users/alice/jobs/tree"};
  const std::vector<std::string> kChmod = {"/helpers/chmodtool", "4755", "/Users/alice/jobs/tree/file"};
  AttackedComputer computer_;
  std::future<Finished> second_;
};

TEST_F(TurnTest, SetIdBitsAreGivenAfterTheOwnersAreChangedAndStay) {
  for (int change = 1; change <= 5; ++change) {
    SCOPED_TRACE("at change " + std::to_string(change));
    computer_.restore();
    EXPECT_EQ(startMidWay(change, kProceed).exitStatus, 0);
    const Finished finished = second_.get();
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
    EXPECT_EQ(modeOfFile(), 04755U);
  }
}

TEST_F(TurnTest, OneThatIsKilledKeepsNobodyWaiting) {
  computer_.restore();
  EXPECT_EQ(startMidWay(2, kKill).signal, SIGKILL);
  const Finished finished = second_.get();
  EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
  EXPECT_EQ(modeOfFile(), 04755U);
}

}  // namespace
}  // namespace hardening
