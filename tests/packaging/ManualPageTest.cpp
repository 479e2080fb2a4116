#include <gmock/gmock.h>

#include <filesystem>

#include "tests/packaging/Arguments.h"
#include "tests/support/ProgramRun.h"

// The manual page, as it is installed.

namespace packaging {
namespace {

using support::runProgram;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::SizeIs;

/// As a terminal shows it, without what makes letters bold.
std::string page() {
  const auto run = runProgram({"/usr/bin/mandoc", "-Tascii", MANUAL_PAGE});
  EXPECT_EQ(run.status, 0);
  return std::regex_replace(run.output, std::regex(".\b"), "");
}

TEST(ManualPage, NothingIsWrongWithIt) {
  const auto run = runProgram({"/usr/bin/mandoc", "-Tlint", "-Wwarning", MANUAL_PAGE});
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.status, 0);
}

TEST(ManualPage, ExplainsEveryArgument) {
  const auto arguments = knownArguments();
  ASSERT_THAT(arguments, SizeIs(10));
  const std::string text = page();
  for (const std::string& argument : arguments) {
    EXPECT_THAT(text, ContainsRegex("\n     (-repair, )?" + argument + "[ ,\n]"));
  }
}

/// All that is read by its name: "HOME", ...
std::set<std::string> environmentVariables() {
  const std::regex reading("(getenv|ariable|nvironment|hasValue)\\(\"([A-Z_]+)\"\\)");
  std::set<std::string> variables;
  for (const char* const part :
       {"app", "diagnostics", "platform/linux", "platform/posix", "services", "ui"}) {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(SOURCE_FOLDER "/" + std::string(part))) {
      if (entry.path().extension() != ".cpp") continue;
      const std::string source = support::contentOf(entry.path());
      for (std::sregex_iterator match(source.begin(), source.end(), reading), end; match != end; ++match) {
        variables.insert((*match)[2]);
      }
    }
  }
  return variables;
}

TEST(ManualPage, ExplainsTheEnvironment) {
  auto variables = environmentVariables();
  ASSERT_THAT(variables, IsSupersetOf({"DISPLAY", "HOME", "LANGUAGE", "SUDO_ASKPASS", "XDG_CONFIG_HOME"}));
  for (const char* const loaders : {"LD_LIBRARY_PATH", "GLIBC_TUNABLES"}) variables.erase(loaders);
  const std::string text = page();
  const std::size_t begin = text.find("\nENVIRONMENT\n");
  const std::string section = text.substr(begin, text.find("\nFILES\n") - begin);
  for (const std::string& variable : variables) {
    EXPECT_THAT(section, ContainsRegex("\n     ([A-Z_]+, )*" + variable + "[ ,\n]"));
  }
}

TEST(ManualPage, NamesTheVersionAndTheSite) {
  const std::string text = page();
  EXPECT_THAT(text, HasSubstr("\nQuillmend " VERSION " "));
  EXPECT_THAT(text, HasSubstr("Vordenworks, " WEB_SITE));
}

}  // namespace
}  // namespace packaging
