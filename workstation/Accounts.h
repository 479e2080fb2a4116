#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace workstation {

/// An account as passwd(5) lists it.
struct Account {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;
  std::string fullName;
  std::string home;
  std::string shell;

  bool operator==(const Account&) const = default;
};

/// The accounts in the text of a passwd file; lines that are not well formed (comments among them) are left
/// out.
[[nodiscard]] std::vector<Account> parseAccounts(std::string_view passwd);

/// One line of a passwd file, with its line feed.
[[nodiscard]] std::string passwdLine(const Account& account);

/// The account of that name.
[[nodiscard]] std::optional<Account> findAccount(const std::vector<Account>& accounts, std::string_view name);

/// The groups, in the text of a group(5) file, that list a user as a member; the account's own group first.
[[nodiscard]] std::vector<gid_t> groupsOf(const Account& account, std::string_view groupFile);

/// The bytes of a utmp(5) file: one boot record and, unless the name is empty, that user's session at the
/// first seat's screen (line "tty7", host ":0", as a display manager writes it). Its process is 1, which runs
/// as long as a visit does.
[[nodiscard]] std::string utmpFor(std::string_view consoleUser);

/// The account of a login window's greeter.
inline constexpr std::string_view greeterAccount = "Debian-gdm";

}  // namespace workstation
