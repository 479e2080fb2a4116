#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/posix/ToolMain.h"

namespace platform {

/// The one form of a verb's command line: one-letter options, each by itself or several in one argument, and
/// paths after them, which may begin in the current folder.
struct VerbForm {
  const char* name;
  const char* usage;
  std::string_view options;  ///< those that are taken
  std::string_view needed;   ///< and those that must be there
  std::size_t paths;
};

struct VerbArguments {
  std::string options;
  std::vector<std::string> paths;
};

/// "--" ends the options.
inline VerbArguments verbArguments(const std::vector<std::string>& values) {
  VerbArguments arguments;
  auto next = values.begin();
  for (; next != values.end() && next->size() > 1 && next->front() == '-'; ++next) {
    if (*next == "--") {
      ++next;
      break;
    }
    arguments.options += next->substr(1);
  }
  arguments.paths.assign(next, values.end());
  return arguments;
}

inline bool isOfForm(const VerbArguments& arguments, const VerbForm& form) {
  return arguments.options.find_first_not_of(form.options) == std::string::npos &&
         form.needed.find_first_not_of(arguments.options) == std::string_view::npos &&
         arguments.paths.size() == form.paths;
}

/// The main function of a verb, of which `run` does the work on the paths.
template <typename Run>
int verbMain(int count, char** values, const VerbForm& form, const Run& run) {
  const auto work = [&](const std::vector<std::string>& given, Report& report) {
    const VerbArguments arguments = verbArguments(given);
    if (!isOfForm(arguments, form)) {
      return report.stop(ExitStatus::usage, std::string("usage: ") + form.usage);
    }
    const foundation::Result<void> done = run(arguments.paths);
    if (!done) report.failure(done.error());
    return report.status();
  };
  return toolMain(count, values, form.name, work, WorkingFolder::keep);
}

}  // namespace platform
