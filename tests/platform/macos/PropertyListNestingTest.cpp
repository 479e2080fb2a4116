#include "platform/macos/PropertyListNesting.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace platform {
namespace {

std::string repeated(const std::string& text, std::size_t count) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

std::string xml(const std::string& content, const std::string& declarations = "") {
  return "<!DOCTYPE plist" + declarations + ">\n<plist version=\"1.0\">" + content + "</plist>\n";
}

TEST(PropertyListNesting, WhatIsUsualIsFoundFaultless) {
  EXPECT_EQ(nestingFault(xml("<dict><key>a</key><array><true/></array></dict>")), 0);
  EXPECT_EQ(nestingFault(xml("<array><!-- <array> --><![CDATA[<array>]]></array>")), 0);
  EXPECT_EQ(nestingFault(xml(repeated("<array>", 512) + repeated("</array>", 512))), 0);
}

TEST(PropertyListNesting, DeepNestingIsInvalid) {
  for (const std::size_t depth : {513U, 100'000U}) {
    EXPECT_EQ(nestingFault(xml(repeated("<array>", depth) + repeated("</array>", depth)), 1'000'000), EINVAL);
    EXPECT_EQ(nestingFault(xml(repeated("<dict><key/>", depth)), 1'000'000), EINVAL);
  }
}

TEST(PropertyListNesting, MoreValuesThanWantedAreTooMany) {
  EXPECT_EQ(nestingFault(xml(repeated("<true/>", kMostValues - 1))), 0);
  EXPECT_EQ(nestingFault(xml(repeated("<true/>", kMostValues))), EFBIG);
}

TEST(PropertyListNesting, DeclarationsAreInvalid) {
  EXPECT_EQ(nestingFault(xml("<true/>", " PUBLIC \"x\" \"y\"")), 0);
  EXPECT_EQ(nestingFault(xml("<true/>", " [<!ENTITY a \"a\">]")), EINVAL);
}

/// What one reader takes for the end of something may be none to another, and hide how deep it goes.
TEST(PropertyListNesting, DepthCannotBeHidden) {
  const auto deep = [](const std::string& opening, const std::string& closing) {
    return xml(repeated(opening, 20'000) + repeated(closing, 20'000));
  };
  EXPECT_EQ(nestingFault(deep("<array a=\"/>\">", "")), EINVAL);
  EXPECT_EQ(nestingFault(deep("<array><!--></array>-->", "</array>")), EINVAL);
  EXPECT_EQ(nestingFault(deep("<array><?x \"?></array>\" ?>", "</array>")), EINVAL);
  EXPECT_EQ(nestingFault(deep(std::string("<array\0x>", 9), std::string("</array\0x>", 10))), EINVAL);
  EXPECT_EQ(nestingFault(deep("<array a='/>'>", "</array>")), EINVAL);
  EXPECT_EQ(nestingFault(deep("<array>", "</array><!DOCTYPE [<array>]>")), EINVAL);
}

TEST(PropertyListNesting, ArraysThatShareTheirBytesAreRefusedBeforeTheyAreHeldInMemory) {
  // Each holds the one behind it and then all the bytes up to the table, which serve every array.
  std::string bytes = "bplist00";
  std::vector<std::size_t> offsets;
  for (std::uint8_t object = 0; object < 200; ++object) {
    offsets.push_back(bytes.size());
    bytes += std::string("\xAF\x12", 2) + std::string("\x00\x01\x00\x00", 4);
    bytes += static_cast<char>(object + 1);
  }
  offsets.push_back(bytes.size());
  bytes += std::string(70000, '\0');
  const std::size_t table = bytes.size();
  for (const std::size_t offset : offsets) {
    for (unsigned shift = 24; shift > 0; shift -= 8)
      bytes += static_cast<char>(offset >> (shift - 8) & 0xFFU);
  }
  bytes += std::string(6, '\0') + "\x03\x01";
  for (const std::uint64_t number : {std::uint64_t{offsets.size()}, std::uint64_t{0}, std::uint64_t{table}}) {
    for (unsigned shift = 64; shift > 0; shift -= 8)
      bytes += static_cast<char>(number >> (shift - 8) & 0xFFU);
  }
  EXPECT_NE(nestingFault(bytes), 0);
}

}  // namespace
}  // namespace platform
