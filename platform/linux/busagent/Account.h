#pragma once

#include <string>

namespace busagent {

/// Makes this process the account's for good: its groups, its group, its user, real, effective and saved.
/// Answers whether all of that was granted and cannot be taken back. A process that is not root may only name
/// its own account.
[[nodiscard]] bool becomeAccount(const std::string& name);

/// Renounces rights by setuid files for this process and its children (PR_SET_NO_NEW_PRIVS).
[[nodiscard]] bool renounceNewPrivileges();

}  // namespace busagent
