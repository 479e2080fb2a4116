#pragma once

#include <string>
#include <vector>

namespace platform {

/// Starts a program with its streams at the null device, and leaves it to itself. Answers whether it was
/// started; why not is said on the system console.
bool launchAndLeave(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace platform
