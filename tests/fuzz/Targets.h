#pragma once

#include <array>
#include <string_view>

/// What is handed any bytes at all, to see that it keeps its promises with them.
///
/// A target takes one input. Where something does not hold that must hold for every input it ends the process
/// (require()); so do the sanitizers that it is built with. Targets keep nothing from one input to the next.
namespace fuzz {

/// A property list, XML or binary, through the reader that the program uses. What is read and can be
/// written reads again as the same, in XML as what is written the same.
void readPropertyList(std::string_view input);

/// A binary property list, changed in place. The changed one is sound and holds what it should.
void changeBinaryPropertyList(std::string_view input);

/// A format and its arguments (pieces()), then the same text once more as a format; then the text functions.
void fillFormat(std::string_view input);

/// A pattern and a name (pieces()); against a matcher that is plain to see.
void matchWildcards(std::string_view input);

/// A path, a component and a protected folder (pieces()): the path functions, names for the trash,
/// and isPathSystemDirectory.
void takePathsApart(std::string_view input);

/// A mode and an owner (pieces()), as the helpers take them.
void readOwnerAndMode(std::string_view input);

/// The file of shortcut keys, read, changed and written.
void changeAssignments(std::string_view input);

/// The program's arguments (pieces()), on the fakes; against a plain reading of them.
void runProgram(std::string_view input);

struct NamedTarget {
  const char* name;  ///< its folder in corpus/
  void (*run)(std::string_view input);
};

inline constexpr std::array<NamedTarget, 8> kTargets = {{{"propertylist", &readPropertyList},
                                                         {"binarypropertylist", &changeBinaryPropertyList},
                                                         {"format", &fillFormat},
                                                         {"wildcard", &matchWildcards},
                                                         {"path", &takePathsApart},
                                                         {"ownerandmode", &readOwnerAndMode},
                                                         {"assignments", &changeAssignments},
                                                         {"commandline", &runProgram}}};

}  // namespace fuzz
