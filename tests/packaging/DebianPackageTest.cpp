#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "tests/packaging/DebianPackage.h"
#include "tests/packaging/Installation.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

// The Debian package that cpack has made.

namespace packaging {
namespace {

namespace fs = std::filesystem;
using support::contentOf;
using support::runProgram;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSubsetOf;
using ::testing::IsSupersetOf;

std::string field(const char* name) {
  std::string value = ofDebianPackage("--field", name);
  if (value.ends_with('\n')) value.pop_back();
  return value;
}

/// Libraries that the Linux backend loads by name, where it needs them.
std::set<std::string> loadedLibraries() {
  std::set<std::string> names;
  const std::regex literal("\"(lib[a-z0-9+-]+\\.so\\.[0-9]+)\"");
  for (const auto& entry : fs::directory_iterator(SOURCE_FOLDER "/platform/linux")) {
    if (entry.path().extension() != ".cpp") continue;
    const std::string source = contentOf(entry.path());
    for (std::sregex_iterator match(source.begin(), source.end(), literal), end; match != end; ++match) {
      names.insert((*match)[1]);
    }
  }
  return names;
}

/// The package of this system that has a library, without its architecture.
std::string packageOf(const std::string& library) {
  const auto run = runProgram({"/usr/bin/dpkg", "--search", "*/" + library});
  EXPECT_EQ(run.status, 0) << run.output;
  return run.output.substr(0, run.output.find(':'));
}

TEST(DebianPackage, SaysWhatItIs) {
  EXPECT_EQ(field("Package"), "quillmend");
  EXPECT_EQ(field("Version"), VERSION);
  EXPECT_EQ(field("Section"), "admin");
  EXPECT_EQ(field("Maintainer"), "Vordenworks <support@vordenworks.example>");
  EXPECT_THAT(field("Description"),
              HasSubstr("repair Apple Compressor and its distributed service Qmaster\n"));
}

TEST(DebianPackage, AsksForWhatIsLinkedLoadedAndStarted) {
  const std::string asked = ", " + field("Depends") + ", " + field("Recommends") + ",";
  EXPECT_THAT(asked, HasSubstr(", libc6 (>="));
  EXPECT_THAT(asked, HasSubstr(", libsdbus-c++1 (>="));
  const auto libraries = loadedLibraries();
  ASSERT_THAT(libraries, IsSupersetOf({"libexpat.so.1", "libsystemd.so.0", "libxkbcommon.so.0"}));
  for (const std::string& library : libraries) EXPECT_THAT(asked, HasSubstr(", " + packageOf(library) + ","));
  EXPECT_THAT(asked, HasSubstr(", sudo,"));
  EXPECT_THAT(asked, HasSubstr(", xdg-utils,"));
}

TEST(DebianPackage, IsRootsAndOthersMayReadIt) {
  const std::regex entry("(drwxr-xr-x|-rwxr-xr-x|-rw-r--r--|lrwxrwxrwx) root/root .*");
  std::istringstream lines(ofDebianPackage("--contents"));
  int seen = 0;
  for (std::string line; std::getline(lines, line); ++seen)
    EXPECT_TRUE(std::regex_match(line, entry)) << line;
  EXPECT_GT(seen, 40);
}

/// All of a package, an ar(5) archive, but the modes of the three files in that, which cpack leaves to the
/// umask and nobody looks at.
std::string packageAt(const std::string& path) {
  constexpr std::size_t kMagic = 8;
  constexpr std::size_t kHeader = 60;
  std::string package = contentOf(path);
  for (std::size_t at = kMagic; at + kHeader <= package.size();) {
    package.replace(at + 40, 8, 8, ' ');
    const std::size_t size = std::stoul(package.substr(at + 48, 10));
    at += kHeader + size + size % 2;
  }
  return package;
}

TEST(DebianPackage, ComesOutTheSameAgainWhateverTheUmask) {
  const std::string package = packageAt(DEBIAN_PACKAGE);
  EXPECT_GT(package.size(), 100'000U);
  EXPECT_TRUE(package == packageAt(DEBIAN_PACKAGE_MADE_AGAIN));
}

class UnpackedTest : public ::testing::Test {
 protected:
  void SetUp() override { ofDebianPackage("--extract", root()); }
  [[nodiscard]] std::string root() const { return folder / "root"; }

  const support::TemporaryFolder folder;
};

TEST_F(UnpackedTest, IsWhatCMakeInstallsWithWhatDebianAsksFor) {
  {
    const support::EnvironmentVariable destination("DESTDIR", folder / "installed");
    ASSERT_EQ(install(BUILD_FOLDER, {"--prefix", "/usr", "--strip"}).status, 0);
  }
  ASSERT_EQ(runProgram({"/usr/bin/gzip", "-9n", folder / "installed/usr/share/man/man1/Quillmend.1"}).status,
            0);
  const auto installed = filesBelow(folder / "installed");
  const auto packed = filesBelow(root());
  EXPECT_THAT(installed, IsSubsetOf(packed));
  for (const std::string& file : installed) {
    EXPECT_EQ(contentOf(root() + "/" + file), contentOf(folder / ("installed/" + file))) << file;
  }
  std::vector<std::string> more;
  std::set_difference(packed.begin(), packed.end(), installed.begin(), installed.end(),
                      std::back_inserter(more));
  EXPECT_THAT(more, ElementsAre("usr/share/doc/quillmend/changelog.gz", "usr/share/doc/quillmend/copyright",
                                "usr/share/lintian/overrides/quillmend"));
  EXPECT_EQ(contentOf(root() + "/usr/share/doc/quillmend/copyright"), contentOf(SOURCE_FOLDER "/LICENSE"));
}

TEST_F(UnpackedTest, NamesTheProgramWhereItWillBe) {
  EXPECT_THAT(contentOf(root() + "/usr/lib/systemd/system/quillmend-repair.service"),
              HasSubstr("\nExecStart=:\"/usr/bin/Quillmend\" -repair\n"));
  const auto help = runProgram({root() + "/usr/bin/Quillmend", "-help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.output, HasSubstr("-repair"));
}

}  // namespace
}  // namespace packaging
