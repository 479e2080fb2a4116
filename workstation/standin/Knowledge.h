#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a stand-in knows of itself and of the workstation, and what it writes down.
namespace workstation::standin {

/// The executable that runs, as the kernel knows it: the place a stand-in is installed at decides what it is.
[[nodiscard]] const std::string& executablePath();

/// Appends a line of that kind about this process to the calls.
void record(std::string kind, std::vector<std::string> arguments = {});

/// A value of the workstation's state, without its line feed; nullopt when it is not set.
[[nodiscard]] std::optional<std::string> value(std::string_view key);

/// Sets a value in one step (a new file that takes the old one's place), or takes it away. Answers whether
/// that was possible.
bool setValue(std::string_view key, std::string_view text);
bool removeValue(std::string_view key);

/// How this executable takes a request to quit: "ignores", a delay in milliseconds, or nothing.
[[nodiscard]] std::string manner();

}  // namespace workstation::standin
