#include "platform/posix/Accounts.h"

#include <pwd.h>

#include <cerrno>

namespace platform {
namespace {

constexpr std::size_t kFirstBuffer = 1UL << 10;
/// An entry that needs more is taken for a broken directory service.
constexpr std::size_t kLargestBuffer = 4UL << 20;

std::string text(const char* field) {
  return field == nullptr ? std::string() : std::string(field);
}

Account accountOf(const passwd& entry) {
  return Account{text(entry.pw_name), entry.pw_uid, entry.pw_gid, text(entry.pw_dir), text(entry.pw_shell)};
}

/// Asks with a buffer that doubles until the entry fits.
template <typename Ask>
std::optional<Account> lookUp(Ask ask) {
  std::vector<char> buffer(kFirstBuffer);
  while (true) {
    passwd entry{};
    passwd* found = nullptr;
    const int status = ask(&entry, buffer.data(), buffer.size(), &found);
    if (status == EINTR) continue;
    if (status == ERANGE && buffer.size() < kLargestBuffer) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (found == nullptr) return std::nullopt;
    return accountOf(*found);
  }
}

}  // namespace

std::optional<Account> accountNamed(const std::string& name) {
  return lookUp([&name](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwnam_r(name.c_str(), entry, buffer, size, found);
  });
}

std::optional<Account> accountWithID(uid_t user) {
  return lookUp([user](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwuid_r(user, entry, buffer, size, found);
  });
}

std::vector<Account> allAccounts() {
  std::vector<Account> accounts;
  ::setpwent();
  while (const passwd* const entry = ::getpwent()) {  // NOLINT(concurrency-mt-unsafe): as required
    accounts.push_back(accountOf(*entry));
  }
  ::endpwent();
  return accounts;
}

}  // namespace platform
