#include "platform/linux/ChildEnvironment.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform {
namespace {

constexpr std::array<std::string_view, 9> kUnsafeNames = {
    "GCONV_PATH", "IFS", "ENV", "BASH_ENV", "SHELLOPTS", "BASHOPTS", "PS4", "CDPATH", "PATH"};
constexpr std::array<std::string_view, 2> kUnsafePrefixes = {"LD_", "BASH_FUNC_"};

bool isUnsafe(std::string_view entry) {
  const std::string_view name = entry.substr(0, entry.find('='));
  return std::find(kUnsafeNames.begin(), kUnsafeNames.end(), name) != kUnsafeNames.end() ||
         std::any_of(kUnsafePrefixes.begin(), kUnsafePrefixes.end(),
                     [name](std::string_view prefix) { return name.starts_with(prefix); });
}

}  // namespace

std::vector<std::string> childEnvironment(const char* const* environment, bool isRoot) {
  std::vector<std::string> entries;
  for (; environment != nullptr && *environment != nullptr; ++environment) {
    if (!isRoot || !isUnsafe(*environment)) entries.emplace_back(*environment);
  }
  if (isRoot) entries.emplace_back("PATH=/usr/bin:/bin:/usr/sbin:/sbin");
  return entries;
}

}  // namespace platform
