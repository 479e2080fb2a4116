#include "platform/posix/WakePipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>

namespace platform {
namespace {

bool isReadable(int descriptor) {
  pollfd watched{descriptor, POLLIN, 0};
  return ::poll(&watched, 1, 0) == 1;
}

TEST(WakePipe, IsReadableFromTheFirstRaiseToTheNextLower) {
  const WakePipe pipe;
  EXPECT_FALSE(isReadable(pipe.descriptor()));
  pipe.raise();
  pipe.raise();
  EXPECT_TRUE(isReadable(pipe.descriptor()));
  pipe.lower();
  EXPECT_FALSE(isReadable(pipe.descriptor()));
  pipe.lower();
  pipe.raise();
  EXPECT_TRUE(isReadable(pipe.descriptor()));
}

TEST(WakePipe, RaisedWithoutEndItNeitherBlocksNorChangesErrno) {
  const WakePipe pipe;
  errno = ENOENT;
  for (int count = 0; count < 100'000; ++count) pipe.raise();  // more than a pipe holds
  EXPECT_EQ(errno, ENOENT);
  pipe.lower();
  EXPECT_FALSE(isReadable(pipe.descriptor()));
}

TEST(WakePipe, NoChildInheritsIt) {
  const WakePipe pipe;
  EXPECT_EQ(::fcntl(pipe.descriptor(), F_GETFD), FD_CLOEXEC);
}

}  // namespace
}  // namespace platform
