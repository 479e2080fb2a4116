#include "services/TGFileManager.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "platform/fakes/FakePlatform.h"

namespace {

class TGFileManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fakes_.files.makeFile("/folder/file", "x");
    fakes_.files.makeFolder("/folder/Tool.app");
    link("file", "/folder/to-file");
    link("../folder", "/folder/to-folder");
    link("nowhere", "/folder/to-nothing");
  }

  void link(const std::string& target, const std::string& path) {
    std::filesystem::create_symlink(target, fakes_.files.real(path));
  }

  fakes::FakePlatform fakes_;
};

struct Answers {
  std::optional<std::string> path;
  bool exists;
  bool isDirectory;
  bool isPackage;
};

TEST_F(TGFileManagerTest, AnswersWhatIsAtAPath) {
  const std::vector<Answers> table = {
      {"/folder/file", true, false, false},         {"/folder", true, true, false},
      {"/folder/Tool.app", true, true, true},       {"/folder/to-file", true, false, false},
      {"/folder/to-folder", true, true, false},     {"/folder/to-nothing", false, false, false},
      {"/folder/missing", false, false, false},     {"/folder/file/below", false, false, false},
      {"/folder/Missing.app", false, false, false}, {std::nullopt, false, false, false},
  };
  for (const Answers& row : table) {
    EXPECT_EQ(TGFileManager::fileExistsAtPath(row.path), row.exists) << row.path.value_or("no path");
    EXPECT_EQ(TGFileManager::isDirectoryAtPath(row.path), row.isDirectory) << row.path.value_or("no path");
    EXPECT_EQ(TGFileManager::isPackageAtPath(row.path), row.isPackage) << row.path.value_or("no path");
  }
}

}  // namespace
