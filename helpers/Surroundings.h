#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/Date.h"
#include "platform/posix/Accounts.h"
#include "platform/posix/PathEntry.h"

namespace helpers {

using platform::Account;
using platform::FileStatus;
using platform::isMissing;
using platform::isTrustedOwner;
using platform::LastLink;
using platform::namesIn;
using platform::openEntry;
using platform::PathEntry;
using platform::PathLevel;
using platform::statusIn;
using platform::statusOf;

/// The computer that a tool works on.
struct Surroundings {
  platform::UniqueDescriptor root;                         ///< the folder that is "/" to every path
  std::vector<Account> accounts;                           ///< passwd(5), as far as it can be enumerated
  std::function<std::optional<gid_t>()> administrators;    ///< the group "admin", where there is one
  std::function<std::optional<Account>()> consoleAccount;  ///< both are asked only when they are needed
  std::function<foundation::Date()> now;
};

/// This computer: "/", the system's accounts and clock; `consoleUser` is its console user's short name. A
/// tool that needs no console user passes none.
[[nodiscard]] Surroundings thisComputer(
    const std::function<std::optional<std::string>()>& consoleUser = nullptr);

/// platform::locate() on that computer.
[[nodiscard]] foundation::Result<PathEntry> locate(const Surroundings& surroundings, std::string_view path,
                                                   LastLink lastLink = LastLink::keep);

}  // namespace helpers
