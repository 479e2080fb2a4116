#include "workstation/RecordLine.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

namespace workstation {
namespace {

using ::testing::ElementsAre;

TEST(RecordLine, AnyBytesInAnArgumentReadBackAsTheyWere) {
  const auto line =
      recordNow("call", "/a b/\ttool", {"", "tab\there", "line\nbreak", "back\\slash\\n", "\xff\x01", "-x "});
  auto text = encoded(line);
  ASSERT_EQ(text.back(), '\n');
  text.pop_back();
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_EQ(decoded(text), line);
}

TEST(RecordLine, TextThatIsNoLineIsRefused) {
  EXPECT_EQ(decoded(""), std::nullopt);
  EXPECT_EQ(decoded("call\t1\t2\t3\t4\t5"), std::nullopt);
  EXPECT_EQ(decoded("call\tx\t2\t3\t4\t5\t/tool"), std::nullopt);
}

TEST(RecordLine, SplittingKeepsEmptyParts) {
  EXPECT_THAT(split("a,,b,", ','), ElementsAre("a", "", "b", ""));
}

TEST(RecordLine, LinesOfManyWritersAreAllThereAndWhole) {
  const auto file = std::filesystem::temp_directory_path() / ("records." + std::to_string(::getpid()));
  constexpr int writers = 4;
  constexpr int linesEach = 200;
  std::vector<std::thread> threads;
  threads.reserve(writers);
  for (int i = 0; i < writers; ++i) {
    threads.emplace_back([&file] {
      for (int j = 0; j < linesEach; ++j)
        appendRecord(file, recordNow("call", "/tool", {std::string(3000, 'x')}));
    });
  }
  for (auto& thread : threads) thread.join();
  const auto lines = split(contentsOf(file).value_or(""), '\n');
  std::filesystem::remove(file);
  ASSERT_EQ(lines.size(), std::size_t{writers * linesEach + 1});
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    ASSERT_TRUE(decoded(lines[i]));
    EXPECT_THAT(decoded(lines[i])->arguments, ElementsAre(std::string(3000, 'x')));
  }
}

}  // namespace
}  // namespace workstation
