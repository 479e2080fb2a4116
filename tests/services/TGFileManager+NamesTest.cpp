#include <gmock/gmock.h>

#include <limits>

#include "platform/fakes/FakePlatform.h"
#include "services/TGFileManager.h"

namespace {

using std::string_literals::operator""s;

struct TGFileManagerNamesTest : ::testing::Test {
  fakes::FakePlatform fakes_;
};

TEST_F(TGFileManagerNamesTest, AFreeNameIsUniqueAsItStands) {
  EXPECT_EQ(TGFileManager::uniqueFilename("/tmp/a"), "/tmp/a");
  EXPECT_EQ(TGFileManager::uniqueFilename(""), "");
  EXPECT_EQ(TGFileManager::uniqueFilename("/tmp/a\0b"s), "/tmp/a\0b"s);
}

TEST_F(TGFileManagerNamesTest, ATakenNameIsNumberedFromTwoBeforeItsExtension) {
  fakes_.files.makeFile("/tmp/Report.txt");
  fakes_.files.makeFile("/tmp/a");
  fakes_.files.makeFolder("/tmp/x.app");
  EXPECT_EQ(TGFileManager::uniqueFilename("/tmp/Report.txt"), "/tmp/Report 2.txt");
  EXPECT_EQ(TGFileManager::uniqueFilename("/tmp/a"), "/tmp/a 2");
  EXPECT_EQ(TGFileManager::uniqueFilename("/tmp/x.app"), "/tmp/x 2.app");
}

TEST_F(TGFileManagerNamesTest, NumbersAreTriedInTurn) {
  fakes_.files.makeFile("/tmp/Report.txt");
  for (int number = 2; number < 30; ++number) {
    fakes_.files.makeFile("/tmp/Report " + std::to_string(number) + ".txt");
  }
  EXPECT_EQ(TGFileManager::uniqueFilename("/tmp/Report.txt"), "/tmp/Report 30.txt");
}

TEST_F(TGFileManagerNamesTest, FileNamesAreCleaned) {
  const std::vector<std::pair<std::string, std::string>> table = {
      {".", ""},          {".hidden", "hidden"}, {"a/b:c", "abc"}, {" .x ", ".x"},         {"..x", ".x"},
      {"", ""},           {". a ", "a"},         {"/:", ""},       {"\n\ta b\r\n", "a b"}, {"..", "."},
      {"plain", "plain"}, {"a/ ", "a"},          {"/ a", " a"},    {"\xff/x", "\xffx"},    {" . ", "."},
  };
  for (const auto& [name, valid] : table) EXPECT_EQ(TGFileManager::validateFilename(name), valid) << name;
}

TEST_F(TGFileManagerNamesTest, SizesAreShownInPowersOf1024) {
  const std::vector<std::pair<double, std::string>> table = {
      {0, "0 B"},
      {1023, "1023 B"},
      {1023.9, "1024 B"},
      {1024, "1.00 KB"},
      {1536, "1.50 KB"},
      {1048575, "1024.00 KB"},
      {1048576, "1.00 MB"},
      {1073741823, "1024.00 MB"},
      {1073741824, "1.00 GB"},
      {1099511627776, "1024.00 GB"},
      {-5, "-5 B"},
      {-1e12, "-1000000000000 B"},
      {std::numeric_limits<double>::quiet_NaN(), "nan GB"},
      {std::numeric_limits<double>::infinity(), "inf GB"},
  };
  for (const auto& [bytes, text] : table) EXPECT_EQ(TGFileManager::formatFileSize(bytes), text);
}

}  // namespace
