#include "platform/posix/SipHash.h"

#include <gtest/gtest.h>

#include <string>

namespace platform {
namespace {

/// The bytes 0 to 15, as in the paper and in its authors' vectors.
constexpr SipHashKey kKey = {0x0706050403020100U, 0x0f0e0d0c0b0a0908U};

/// The bytes from 0 on.
std::string bytes(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text.push_back(static_cast<char>(i));
  return text;
}

TEST(SipHashTest, IsThatOfThePaper) {
  EXPECT_EQ(SipHash(kKey).end(bytes(15)), 0xa129ca6149be45e5U);
}

TEST(SipHashTest, IsThatOfItsAuthorsVectors) {
  const struct {
    int length;
    std::uint64_t digest;
  } vectors[] = {{0, 0x726fdb47dd0e0e31U}, {1, 0x74f839c593dc67fdU}, {2, 0x0d6c8009d9a94f5aU},
                 {7, 0xab0200f58b01d137U}, {8, 0x93f5f5799a932462U}, {9, 0x9e0082df0ba9e4b0U},
                 {63, 0x958a324ceb064572U}};
  for (const auto& [length, digest] : vectors) EXPECT_EQ(SipHash(kKey).end(bytes(length)), digest) << length;
}

TEST(SipHashTest, AWordIsEightBytesOfTheText) {
  SipHash hash(kKey);
  hash.add(0x0706050403020100U);
  EXPECT_EQ(hash.end(bytes(15).substr(8)), 0xa129ca6149be45e5U);
}

TEST(SipHashTest, AnotherKeyAnotherLengthAndAnotherByteGiveAnother) {
  const std::string text = bytes(16);
  const std::uint64_t digest = SipHash(kKey).end(text);
  EXPECT_NE(SipHash({kKey[0] ^ 1U, kKey[1]}).end(text), digest);
  EXPECT_NE(SipHash({kKey[0], kKey[1] ^ 1U}).end(text), digest);
  EXPECT_NE(SipHash(kKey).end(text + '\0'), digest);
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::string other = text;
    other[i] = static_cast<char>(other[i] ^ 0x40);
    EXPECT_NE(SipHash(kKey).end(other), digest) << i;
  }
}

}  // namespace
}  // namespace platform
