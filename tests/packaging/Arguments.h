#pragma once

#include <regex>
#include <set>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace packaging {

/// All that the command line is compared with, in small letters: "-help", "-repair", ...
inline std::set<std::string> knownArguments() {
  const std::string source = support::contentOf(COMMAND_LINE_SOURCE);
  const std::regex literal("\"(-[a-z]+)\"");
  std::set<std::string> arguments;
  for (std::sregex_iterator match(source.begin(), source.end(), literal), end; match != end; ++match) {
    arguments.insert((*match)[1]);
  }
  return arguments;
}

}  // namespace packaging
