#include "platform/linux/Base64.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace platform {
namespace {

TEST(Base64, BytesAndTextsAreThoseOfItsDefinition) {
  const std::vector<std::pair<const char*, const char*>> known = {{"", ""},
                                                                  {"f", "Zg=="},
                                                                  {"fo", "Zm8="},
                                                                  {"foo", "Zm9v"},
                                                                  {"foob", "Zm9vYg=="},
                                                                  {"fooba", "Zm9vYmE="},
                                                                  {"foobar", "Zm9vYmFy"},
                                                                  {"\xFB\xFF\xBF", "+/+/"}};
  for (const auto& [bytes, text] : known) {
    EXPECT_EQ(base64(bytes), text);
    EXPECT_EQ(fromBase64(text), bytes);
  }
}

TEST(Base64, EveryByteComesBackAtEveryPlace) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
    EXPECT_EQ(fromBase64(base64(bytes)), bytes);
  }
}

TEST(Base64, WhiteSpaceCountsForNothing) {
  EXPECT_EQ(fromBase64("\n Zm\t9\r\nv Y g = = \n"), "foob");
  EXPECT_EQ(fromBase64(" \n"), "");
}

TEST(Base64, TheFillingAtTheEndMayBeMissing) {
  for (const char* const text : {"Zm9vYg==", "Zm9vYg=", "Zm9vYg", "Zm9vYg \n="}) {
    EXPECT_EQ(fromBase64(text), "foob") << text;
  }
  EXPECT_EQ(fromBase64("Zm9vYmE"), "fooba");
  EXPECT_EQ(fromBase64("Zg"), "f");
}

TEST(Base64, WhatIsNotWholeOrHasOtherCharactersIsNone) {
  for (const char* const text : {"Z", "Zm9vY", "Z=", "Z===", "Zg===", "Zm8==", "Zm9v=", "=",
                                 "====", "Zg==Zg==", "Zg=Zg", "=Zg=", "Zm9-", "Zm9_", "Zm9\x7F", "Zm9\xFF"}) {
    EXPECT_EQ(fromBase64(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace platform
