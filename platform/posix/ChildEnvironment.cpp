#include "platform/posix/ChildEnvironment.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform {
namespace {

constexpr std::array<std::string_view, 3> kPersonNames = {"HOME", "USER", "LOGNAME"};
constexpr std::array<std::string_view, 3> kLanguageNames = {"TERM", "LANG", "LANGUAGE"};
constexpr std::array<std::string_view, 2> kScreenNames = {"DISPLAY", "WAYLAND_DISPLAY"};

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool namesNoFile(std::string_view zone) {
  if (zone.starts_with(':')) zone.remove_prefix(1);
  return !zone.starts_with('/') && zone.find("..") == std::string_view::npos;
}

bool isForRoot(std::string_view entry, OpensOnDesktop opensOnDesktop) {
  const std::size_t end = entry.find('=');
  if (end == std::string_view::npos) return false;
  const std::string_view name = entry.substr(0, end);
  const std::string_view value = entry.substr(end + 1);
  if (contains(kPersonNames, name)) return true;
  if (contains(kScreenNames, name)) return opensOnDesktop == OpensOnDesktop::yes;
  if (name == "TZ") return namesNoFile(value);
  return (contains(kLanguageNames, name) || name.starts_with("LC_")) &&
         value.find_first_of("/%") == std::string_view::npos;
}

}  // namespace

std::vector<std::string> childEnvironment(const char* const* environment, bool isRoot,
                                          OpensOnDesktop opensOnDesktop) {
  std::vector<std::string> entries;
  for (; environment != nullptr && *environment != nullptr; ++environment) {
    if (!isRoot || isForRoot(*environment, opensOnDesktop)) entries.emplace_back(*environment);
  }
  if (isRoot) entries.emplace_back("PATH=/usr/bin:/bin:/usr/sbin:/sbin");
  return entries;
}

}  // namespace platform
