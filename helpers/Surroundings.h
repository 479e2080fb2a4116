#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Date.h"
#include "platform/linux/Descriptor.h"

namespace helpers {

struct Account {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;
  std::string home;
};

/// The computer that a tool works on.
struct Surroundings {
  platform::Descriptor root;                               ///< the folder that is "/" to every path
  std::vector<Account> accounts;                           ///< passwd(5), as far as it can be enumerated
  std::function<std::optional<Account>()> consoleAccount;  ///< asked only when it is needed
  std::function<foundation::Date()> now;
};

/// This computer: "/", the system's accounts and clock; `consoleUser` is its console user's short name. A
/// tool that needs no console user passes none.
[[nodiscard]] Surroundings thisComputer(
    const std::function<std::optional<std::string>()>& consoleUser = nullptr);

/// Whether only root, or the user that this process acts as, owns it.
[[nodiscard]] bool isTrustedOwner(uid_t user);

}  // namespace helpers
