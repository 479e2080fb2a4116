#pragma once

#include <string_view>

/// The lines by which the bundle's askpass tells, among sudo's messages, what it has done.
namespace platform {

inline constexpr std::string_view kAskpassAsks = "askpass: asks";
/// A number follows that stands for the prompt.
inline constexpr std::string_view kAskpassAnswered = "askpass: answered ";

}  // namespace platform
