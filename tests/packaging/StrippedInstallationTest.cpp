#include <gmock/gmock.h>

#include "tests/packaging/Installation.h"
#include "tests/support/TemporaryFolder.h"

// What `cmake --install --strip` puts below a prefix.

namespace packaging {
namespace {

namespace fs = std::filesystem;
using support::contentOf;
using support::runProgram;
using ::testing::HasSubstr;

TEST(StrippedInstallation, ItsProgramsHaveNoSymbolsAndRun) {
  const support::TemporaryFolder folder;
  ASSERT_EQ(install(BUILD_FOLDER, {"--prefix", folder.path(), "--strip"}).status, 0);
  int programs = 0;
  for (const char* place : {"MacOS", "Helpers", "SharedSupport", "Frameworks"}) {
    const fs::path built = fs::path(QUILLMEND_BUNDLE) / "Contents" / place;
    if (!fs::exists(built)) continue;
    for (const auto& entry : fs::directory_iterator(built)) {
      const auto copy = fs::path(folder / "lib/Quillmend.app/Contents") / place / entry.path().filename();
      ASSERT_NE(contentOf(entry.path()).find(".symtab"), std::string::npos) << entry.path();
      EXPECT_EQ(contentOf(copy).find(".symtab"), std::string::npos) << copy;
      ++programs;
    }
  }
  EXPECT_GT(programs, 14);
  const auto help = runProgram({folder / "bin/Quillmend", "-help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.output, HasSubstr("-repair"));
}

}  // namespace
}  // namespace packaging
