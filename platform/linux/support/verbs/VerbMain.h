#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Result.h"

namespace platform {

/// A command line of one-letter options, each by itself or several in one argument, and paths after them.
struct VerbArguments {
  std::string options;
  std::vector<std::string> paths;
};

/// "--" ends the options.
inline VerbArguments verbArguments(int count, char** values) {
  VerbArguments arguments;
  int next = 1;
  for (; next < count && values[next][0] == '-' && values[next][1] != '\0'; ++next) {
    if (std::string_view(values[next]) == "--") {
      ++next;
      break;
    }
    arguments.options += values[next] + 1;
  }
  if (next < count) arguments.paths.assign(values + next, values + count);
  return arguments;
}

/// Whether the options are among `allowed`, with all of `needed`.
inline bool areOptions(const std::string& options, std::string_view allowed, std::string_view needed) {
  return options.find_first_not_of(allowed) == std::string::npos &&
         needed.find_first_not_of(options) == std::string_view::npos;
}

/// The exit status for a result: 0, or 1 after a line on standard error.
inline int verbStatus(const char* name, const foundation::Result<void>& result) {
  if (result) return 0;
  std::fprintf(stderr, "%s: %s\n", name, result.error().description.c_str());
  return 1;
}

/// 64 after the usage.
inline int verbUsage(const char* usage) {
  std::fprintf(stderr, "usage: %s\n", usage);
  return 64;
}

}  // namespace platform
