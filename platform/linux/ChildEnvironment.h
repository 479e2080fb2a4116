#pragma once

#include <string>
#include <vector>

namespace platform {

/// The environment that a child gets, as "NAME=value" strings.
///
/// An ordinary user's children get it as it is. Root's get it without what would make the loader, the C
/// library or a shell run or read something of the caller's choosing (LD_*, GCONV_PATH, IFS, ENV, BASH_ENV,
/// BASH_FUNC_*, SHELLOPTS, BASHOPTS, PS4, CDPATH), and with PATH=/usr/bin:/bin:/usr/sbin:/sbin.
[[nodiscard]] std::vector<std::string> childEnvironment(const char* const* environment, bool isRoot);

}  // namespace platform
