#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// An entry of the account database.
struct Account {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;
  std::string home;
  std::string shell = {};
};

/// Entries of the account database, whatever sources nsswitch.conf(5) names: getpwnam_r(3), getpwuid_r(3).
/// nullopt for an unknown account and when the database cannot be asked.
[[nodiscard]] std::optional<Account> accountNamed(const std::string& name);
[[nodiscard]] std::optional<Account> accountWithID(uid_t user);

/// All entries, as far as the sources can be enumerated: getpwent(3). REQUIRES that no other thread
/// enumerates.
[[nodiscard]] std::vector<Account> allAccounts();

}  // namespace platform
