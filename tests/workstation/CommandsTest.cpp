// The programs of the command line themselves.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/workstation/RootTest.h"
#include "workstation/TemporaryVolume.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

struct Said {
  int status = -1;
  std::string text;  ///< standard output and standard error
};

Said shell(const std::string& line) {
  Said said;
  FILE* const pipe = ::popen(("{ " + line + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) return said;
  std::array<char, 4096> block{};
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe)) {
    said.text.append(block.data(), count);
  }
  const int ended = ::pclose(pipe);
  said.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
  return said;
}

class CommandsTest : public RootTest {};

TEST_F(CommandsTest, AnOptionThatThereIsNotMakesNoVolumeOfThatName) {
  const TemporaryVolume sample({});
  const auto folder = sample.volume().host("/Users/Shared/here");
  fs::create_directory(folder);
  const auto said = shell("cd '" + folder.string() + "' && " MAKE_WORKSTATION " -h");
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.text, HasSubstr("unknown option -h"));
  EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(CommandsTest, NobodyCanSitAtTheConsole) {
  const TemporaryVolume sample({});
  const auto inside = [&](const std::string& options) {
    return shell(ENTER_WORKSTATION " '" + sample.volume().folder().string() + "' " + options +
                 " -- /bin/sh -c 'ls /run/user'")
        .text;
  };
  EXPECT_EQ(inside(""), "501\n");
  EXPECT_EQ(inside("--console bob"), "502\n");
  EXPECT_EQ(inside("--console nobody"), "");
}

}  // namespace
}  // namespace workstation
