#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// What "$NAME" stands for.
using ShellVariables = std::map<std::string, std::string, std::less<>>;

/// The value of a NAME=value line in a file that is a list of shell assignments, as os-release(5) and
/// machine-info(5) are: the last one counts, usable or not. Read as a shell would: the value ends at a blank
/// or a semicolon outside of quotation marks; quotation marks and backslashes are resolved; the variables
/// given are expanded but between single quotation marks, and any other "$" stands for itself. nullopt when
/// there is none.
[[nodiscard]] std::optional<std::string> shellAssignment(std::string_view file, std::string_view name,
                                                         const ShellVariables& variables = {});

}  // namespace platform
