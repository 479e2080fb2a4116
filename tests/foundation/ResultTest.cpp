#include "platform/foundation/Result.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

namespace foundation {
namespace {

TEST(Result, HoldsAValueOrAnError) {
  const Result<std::string> good = std::string("value");
  const Result<std::string> bad = systemError(ENOENT, "/x");
  EXPECT_TRUE(good.ok());
  EXPECT_EQ(good.value(), "value");
  EXPECT_FALSE(bad.ok());
  EXPECT_EQ(bad.error().code, ENOENT);
  EXPECT_EQ(bad.error().path, "/x");
}

TEST(Result, GivesItsValueAway) {
  Result<std::unique_ptr<int>> result = std::make_unique<int>(5);
  const std::unique_ptr<int> value = std::move(result).value();
  EXPECT_EQ(*value, 5);
}

TEST(Result, SuccessNeedsNoValue) {
  const Result<void> good;
  const Result<void> bad = systemError(EPERM, "");
  EXPECT_TRUE(good.ok());
  EXPECT_FALSE(bad);
  EXPECT_EQ(bad.error().code, EPERM);
}

TEST(SystemError, DescribesPathAndReason) {
  EXPECT_EQ(systemError(EACCES, "/tmp/x").localizedDescription(), "/tmp/x: Permission denied");
  EXPECT_EQ(systemError(ENOSPC, "").localizedDescription(), "No space left on device");
}

}  // namespace
}  // namespace foundation
