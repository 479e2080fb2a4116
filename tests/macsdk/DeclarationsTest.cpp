#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <regex>
#include <string>

/// Compares our declarations of the Mac's services (frameworks/) with independent ones: those of the Free
/// Pascal compiler's packages, read where Debian installs them.
namespace {

namespace fs = std::filesystem;

struct Declarations {
  std::map<std::string, std::size_t> functions;  ///< with the number of parameters
  std::map<std::string, std::string> constants;  ///< with the value: digits, or the text of a string
  std::map<std::string, bool> variables;
};

std::string contentOf(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void forEach(const std::string& text, const char* pattern, const auto& use) {
  const std::regex expression(pattern);
  for (auto match = std::sregex_iterator(text.begin(), text.end(), expression);
       match != std::sregex_iterator(); ++match) {
    use(*match);
  }
}

/// Decimal, hexadecimal (0x or $), a shift ("1 << 4", "1 shl 4"), with a sign and a C suffix; nullopt for
/// others.
std::optional<long long> numberOf(const std::string& text) {
  static const std::regex kNumber(
      R"(\s*(-?)\s*(0x|\$)?([0-9A-Fa-f]+)(?:UL|U|L)?\s*(?:(?:<<|shl)\s*([0-9]+))?\s*)");
  std::smatch match;
  if (!std::regex_match(text, match, kNumber)) return std::nullopt;
  const long long magnitude = std::stoll(match[3], nullptr, match[2].matched ? 16 : 10);
  const long long value = match[4].matched ? magnitude << std::stoi(match[4]) : magnitude;
  return match[1].length() > 0 ? -value : value;
}

void addConstant(Declarations& found, const std::string& name, const std::string& expression) {
  if (const auto number = numberOf(expression)) found.constants[name] = std::to_string(*number);
}

std::size_t parametersOfC(const std::string& list) {
  if (list.empty() || list == "void") return 0;
  return static_cast<std::size_t>(std::count(list.begin(), list.end(), ',')) + 1;
}

std::string withoutComments(const std::string& text) {
  return std::regex_replace(text, std::regex(R"(//[^\n]*)"), "");
}

Declarations ofHeader(const std::string& header) {
  const std::string text = withoutComments(header);
  Declarations found;
  forEach(text, R"(\n[A-Za-z][A-Za-z0-9_ *]*?[ *]([A-Za-z0-9]+)\(([^()]*)\);)",
          [&](const auto& match) { found.functions[match[1]] = parametersOfC(match[2]); });
  forEach(text, R"(extern const [A-Za-z]+ ([A-Za-z0-9]+);)",
          [&](const auto& match) { found.variables[match[1]] = true; });
  forEach(text, R"(#define ([A-Za-z]+) "([^"]*)\")",
          [&](const auto& match) { found.constants[match[1]] = match[2]; });
  forEach(text, R"(\benum \{([^}]*)\})", [&](const auto& list) {
    forEach(list[1], R"(([A-Za-z0-9_]+)\s*=\s*([^,]+))",
            [&](const auto& match) { addConstant(found, match[1], match[2]); });
  });
  return found;
}

/// "a, b: T; c: U" has three.
std::size_t parametersOfPascal(const std::string& list) {
  if (list.find_first_not_of(" \t\r\n") == std::string::npos) return 0;
  const auto isSeparator = [](char letter) { return letter == ';' || letter == ','; };
  return static_cast<std::size_t>(std::count_if(list.begin(), list.end(), isSeparator)) + 1;
}

std::string withoutBraces(const std::string& text) {
  return std::regex_replace(std::regex_replace(text, std::regex(R"(\(\*[^*]*\*\))"), ""),
                            std::regex(R"(\{[^}]*\})"), "");
}

void addUnit(Declarations& found, const std::string& unit) {
  forEach(
      unit,
      R"((?:function|procedure) ([A-Za-z0-9]+)\s*(?:\(([^()]*)\))?[^;]*; external name '_([A-Za-z0-9]+)')",
      [&](const auto& match) { found.functions[match[3]] = parametersOfPascal(match[2]); });
  forEach(unit, R"(var ([A-Za-z0-9]+): [A-Za-z]+; external name '_)",
          [&](const auto& match) { found.variables[match[1]] = true; });
  forEach(unit, R"(\n\s*([A-Za-z][A-Za-z0-9_]+) = '([^']*)';)",
          [&](const auto& match) { found.constants[match[1]] = match[2]; });
  forEach(unit, R"(\n\s*([A-Za-z][A-Za-z0-9_]+) = ([^;'\n]+);)",
          [&](const auto& match) { addConstant(found, match[1], match[2]); });
}

/// The units that declare what our header does.
Declarations ofUnits(const std::vector<std::string>& names) {
  Declarations found;
  for (const std::string& name : names) {
    const std::string unit = contentOf(fs::path(PASCAL_UNITS) / (name + ".pas"));
    EXPECT_FALSE(unit.empty()) << name;
    addUnit(found, withoutBraces(unit));
  }
  return found;
}

struct Pair {
  const char* header;
  std::vector<std::string> units;
};

/// For the tests' names.
void PrintTo(const Pair& pair, std::ostream* stream) {
  *stream << pair.header;
}

const std::regex kEndOfDeclaration(R"(\);\n)");

class DeclarationsTest : public ::testing::TestWithParam<Pair> {
 protected:
  const std::string header = contentOf(fs::path(FRAMEWORKS) / GetParam().header);
  const Declarations ours = ofHeader(header);
  const Declarations others = ofUnits(GetParam().units);
};

TEST_P(DeclarationsTest, EveryFunctionExistsWithAsManyParameters) {
  for (const auto& [name, parameters] : ours.functions) {
    const auto other = others.functions.find(name);
    ASSERT_NE(other, others.functions.end()) << name << " is declared nowhere";
    EXPECT_EQ(parameters, other->second) << name;
  }
}

TEST_P(DeclarationsTest, NoDeclarationIsOverlooked) {
  const auto ends = std::sregex_iterator(header.begin(), header.end(), kEndOfDeclaration);
  EXPECT_EQ(std::distance(ends, std::sregex_iterator()), ours.functions.size());
}

TEST_P(DeclarationsTest, EveryConstantHasTheSameValue) {
  for (const auto& [name, value] : ours.constants) {
    const auto other = others.constants.find(name);
    ASSERT_NE(other, others.constants.end()) << name << " is declared nowhere";
    EXPECT_EQ(value, other->second) << name;
  }
}

TEST_P(DeclarationsTest, EveryVariableExists) {
  for (const auto& [name, exists] : ours.variables)
    EXPECT_EQ(others.variables.contains(name), exists) << name;
}

INSTANTIATE_TEST_SUITE_P(
    Headers, DeclarationsTest,
    ::testing::Values(Pair{"CoreFoundation/CoreFoundation.h",
                           {"CFArray", "CFBase", "CFBundle", "CFData", "CFDate", "CFDictionary",
                            "CFNotificationCenter", "CFNumber", "CFPreferences", "CFPropertyList",
                            "CFRunLoop", "CFString", "CFURL", "CFUUID", "CFUserNotification"}},
                      Pair{"Security/Authorization.h", {"Authorization", "AuthorizationTags"}},
                      Pair{"CoreServices/CoreServices.h",
                           {"AEDataModel", "AEInteraction", "AEMach", "AppleEvents", "LSInfo"}},
                      Pair{"Carbon/Carbon.h", {"Events", "TextInputSources", "UnicodeUtilities"}},
                      Pair{"CoreFoundation/CFMessagePort.h", {"CFMessagePort"}},
                      Pair{"CoreGraphics/CGSession.h", {"CGSession"}},
                      Pair{"../../../platform/macos/CarbonFiles.h",
                           {"Aliases", "CFURL", "Files", "MacMemory"}},
                      Pair{"SystemConfiguration/SystemConfiguration.h", {"SCDynamicStoreCopySpecific"}}));

TEST(DeclarationsReaderTest, TheHeadersReaderSeesConstantsAndParameters) {
  const Declarations found =
      ofHeader("\nint One(void);\nconst void* Two(int a, long* b);\nenum { kA = 1UL << 3, kB = -5 };\n");
  EXPECT_EQ(found.functions, (std::map<std::string, std::size_t>{{"One", 0}, {"Two", 2}}));
  EXPECT_EQ(found.constants, (std::map<std::string, std::string>{{"kA", "8"}, {"kB", "-5"}}));
}

TEST(DeclarationsReaderTest, TheUnitsReaderSeesConstantsAndParameters) {
  Declarations found;
  addUnit(found,
          "\nfunction Two( a, b: T ): R; external name '_Two';\n\tkA = 1 shl 3;\n\tkB = $0F;\n\tkC = 'x';\n");
  EXPECT_EQ(found.functions, (std::map<std::string, std::size_t>{{"Two", 2}}));
  EXPECT_EQ(found.constants, (std::map<std::string, std::string>{{"kA", "8"}, {"kB", "15"}, {"kC", "x"}}));
}

}  // namespace
