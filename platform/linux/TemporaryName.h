#pragma once

#include <string>

namespace platform {

/// A file name that nobody can guess and occupy beforehand, ".quillmend." and 24 hexadecimal digits; "" when
/// the system has no random numbers, which no file can be made under.
[[nodiscard]] std::string temporaryName();

}  // namespace platform
