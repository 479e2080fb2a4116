#include "helpers/Surroundings.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

namespace helpers {
namespace {

Account accountOf(const passwd& entry) {
  return Account{entry.pw_name, entry.pw_uid, entry.pw_gid, entry.pw_dir == nullptr ? "" : entry.pw_dir};
}

std::vector<Account> allAccounts() {
  std::vector<Account> accounts;
  setpwent();
  while (const passwd* entry = getpwent()) {  // NOLINT(concurrency-mt-unsafe): the tools have one thread
    accounts.push_back(accountOf(*entry));
  }
  endpwent();
  return accounts;
}

std::optional<Account> accountNamed(const std::string& name) {
  const passwd* entry = getpwnam(name.c_str());  // NOLINT(concurrency-mt-unsafe): the tools have one thread
  if (entry == nullptr) return std::nullopt;
  return accountOf(*entry);
}

}  // namespace

Surroundings thisComputer(const std::function<std::optional<std::string>()>& consoleUser) {
  Surroundings surroundings;
  surroundings.root.reset(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  surroundings.accounts = allAccounts();
  surroundings.consoleAccount = [consoleUser]() -> std::optional<Account> {
    const std::optional<std::string> name = consoleUser ? consoleUser() : std::nullopt;
    return name ? accountNamed(*name) : std::nullopt;
  };
  surroundings.now = [] { return foundation::Date(std::chrono::system_clock::now()); };
  return surroundings;
}

bool isTrustedOwner(uid_t user) {
  return user == 0 || user == geteuid();
}

}  // namespace helpers
