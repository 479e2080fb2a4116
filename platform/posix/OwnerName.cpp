#include "platform/posix/OwnerName.h"

#include <grp.h>

#include <charconv>
#include <cstdint>

#include "platform/posix/Accounts.h"

namespace platform {
namespace {

/// -1 is no number of a user or group: to chown(2) it means "leave".
std::optional<std::uint32_t> number(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value == UINT32_MAX) return std::nullopt;
  return value;
}

std::optional<uid_t> userNamed(const std::string& name) {
  if (const auto account = accountNamed(name)) return account->user;
  return number(name);
}

std::optional<gid_t> groupNamed(const std::string& name) {
  if (const group* entry = getgrnam(name.c_str())) return entry->gr_gid;  // NOLINT(concurrency-mt-unsafe)
  if (name == "wheel") return gid_t{0};
  return number(name);
}

std::optional<gid_t> loginGroup(const std::string& user) {
  const auto account = accountNamed(user);
  return account ? std::optional(account->group) : std::nullopt;
}

}  // namespace

std::optional<Ownership> ownershipNamed(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string user = text.substr(0, colon);
  Ownership ownership;
  if (!user.empty() && !(ownership.owner = userNamed(user))) return std::nullopt;
  if (colon == std::string::npos) return user.empty() ? std::nullopt : std::optional(ownership);
  const std::string group = text.substr(colon + 1);
  if (user.empty() && group.empty()) return std::nullopt;
  ownership.group = group.empty() ? loginGroup(user) : groupNamed(group);
  return ownership.group ? std::optional(ownership) : std::nullopt;
}

}  // namespace platform
