#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ProgramRun.h"

namespace packaging {

/// What lies below a folder but folders, by its path from there, sorted.
inline std::vector<std::string> filesBelow(const std::filesystem::path& folder) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_symlink() || !entry.is_directory()) {
      files.push_back(entry.path().lexically_relative(folder));
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// `cmake --install` of a build, with these further arguments.
inline support::ProgramRun install(const std::string& build, const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {CMAKE_PROGRAM, "--install", build};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return support::runProgram(command);
}

}  // namespace packaging
