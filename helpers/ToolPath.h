#pragma once

#include <string_view>

#include "helpers/ProtectedFolders.h"
#include "helpers/Tool.h"

namespace helpers {

[[nodiscard]] inline bool isAbsolutePath(std::string_view path) {
  return path.starts_with('/');
}

/// Says why the path of a command line could not be opened, and with which status the tool ends.
[[nodiscard]] ExitStatus reportUnlocated(Report& report, const foundation::Error& error);

}  // namespace helpers
