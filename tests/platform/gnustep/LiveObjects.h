#pragma once

#include <functional>
#include <string>

/// Objects of Foundation's that live, counted by its own debugging functions.
namespace gnustep {

/// Does the work, and answers what objects it left behind: their classes and numbers, in one line. The work
/// is done once before, so that what the libraries keep for good is there already.
[[nodiscard]] std::string leftBehindBy(const std::function<void()>& work);

}  // namespace gnustep
