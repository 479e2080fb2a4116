// Every input that is kept, seeds and findings, through its target.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/fuzz/Targets.h"
#include "tests/support/TemporaryFolder.h"

namespace {

class ReplayTest : public testing::TestWithParam<fuzz::NamedTarget> {
 protected:
  static std::vector<std::string> inputs() {
    std::vector<std::string> paths;
    const std::string folder = std::string(FUZZ_CORPUS) + "/" + GetParam().name;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    return paths;
  }
};

TEST_P(ReplayTest, KeepsItsPromises) {
  const auto paths = inputs();
  EXPECT_GE(paths.size(), 5U) << "where have the seeds gone?";
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    RecordProperty("input", path);
    GetParam().run(support::contentOf(path));
  }
  GetParam().run("");
}

INSTANTIATE_TEST_SUITE_P(Targets, ReplayTest, testing::ValuesIn(fuzz::kTargets),
                         [](const auto& target) { return std::string(target.param.name); });

}  // namespace
