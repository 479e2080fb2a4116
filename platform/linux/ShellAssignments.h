#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The value of a NAME=value line in a file that is a list of shell assignments, as os-release(5) and
/// machine-info(5) are: the last one counts; quotation marks and backslashes are resolved as a shell would,
/// nothing is expanded. nullopt when there is none.
[[nodiscard]] std::optional<std::string> shellAssignment(std::string_view file, std::string_view name);

}  // namespace platform
