#include "workstation/Accounts.h"

#include <utmp.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>

#include "workstation/RecordLine.h"

namespace workstation {
namespace {

template <typename Number>
bool parse(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end;
}

std::optional<Account> parseAccount(const std::string& line) {
  const auto fields = split(line, ':');
  if (fields.size() != 7 || fields[0].empty()) return std::nullopt;
  Account account{fields[0], 0, 0, fields[4], fields[5], fields[6]};
  if (!parse(fields[2], account.user) || !parse(fields[3], account.group)) return std::nullopt;
  return account;
}

/// utmp fields are filled to their length and not always ended by a zero.
template <std::size_t size>
void fill(char (&field)[size], std::string_view text) {
  std::memcpy(static_cast<char*>(field), text.data(), std::min(size, text.size()));
}

std::string bytesOf(const utmp& record) {
  std::string bytes(sizeof record, '\0');
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

utmp recordAt(short type, std::string_view user, std::string_view line, std::string_view host) {
  utmp record{};
  record.ut_type = type;
  record.ut_pid = 1;
  fill(record.ut_user, user);
  fill(record.ut_line, line);
  fill(record.ut_host, host);
  fill(record.ut_id, line.size() > 3 ? line.substr(3) : line);
  record.ut_tv.tv_sec = static_cast<decltype(record.ut_tv.tv_sec)>(std::time(nullptr));
  return record;
}

}  // namespace

std::vector<Account> parseAccounts(std::string_view passwd) {
  std::vector<Account> accounts;
  for (const auto& line : split(passwd, '\n')) {
    if (auto account = parseAccount(line)) accounts.push_back(std::move(*account));
  }
  return accounts;
}

std::string passwdLine(const Account& account) {
  return account.name + ":*:" + std::to_string(account.user) + ':' + std::to_string(account.group) + ':' +
         account.fullName + ':' + account.home + ':' + account.shell + '\n';
}

std::optional<Account> findAccount(const std::vector<Account>& accounts, std::string_view name) {
  const auto found = std::find_if(accounts.begin(), accounts.end(),
                                  [&](const Account& account) { return account.name == name; });
  if (found == accounts.end()) return std::nullopt;
  return *found;
}

std::vector<gid_t> groupsOf(const Account& account, std::string_view groupFile) {
  std::vector<gid_t> groups{account.group};
  for (const auto& line : split(groupFile, '\n')) {
    const auto fields = split(line, ':');
    gid_t group = 0;
    if (fields.size() != 4 || !parse(fields[2], group) || group == account.group) continue;
    const auto members = split(fields[3], ',');
    if (std::find(members.begin(), members.end(), account.name) != members.end()) groups.push_back(group);
  }
  return groups;
}

std::string utmpFor(std::string_view consoleUser) {
  auto bytes = bytesOf(recordAt(BOOT_TIME, "reboot", "~", "workstation"));
  if (!consoleUser.empty()) bytes += bytesOf(recordAt(USER_PROCESS, consoleUser, "tty7", ":0"));
  return bytes;
}

}  // namespace workstation
