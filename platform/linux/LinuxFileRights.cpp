#include "platform/posix/FileRights.h"

#include <grp.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/Accounts.h"

namespace platform {
namespace {

constexpr uid_t kNobody = 65534;
constexpr gid_t kNoGroup = 65534;

FileRights rightsOf(const Account& account) {
  FileRights rights{account.user, account.group, std::vector<gid_t>(16)};
  int count = static_cast<int>(rights.groups.size());
  while (::getgrouplist(account.name.c_str(), account.group, rights.groups.data(), &count) < 0) {
    rights.groups.resize(static_cast<std::size_t>(count));
  }
  rights.groups.resize(static_cast<std::size_t>(count));
  return rights;
}

std::vector<gid_t> groupsInForce() {
  std::vector<gid_t> groups(static_cast<std::size_t>(::getgroups(0, nullptr)));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return groups;
}

/// The kernel's own call: the C library's would change every thread of the process.
bool setGroupsOfThread(const std::vector<gid_t>& groups) {
  return ::syscall(SYS_setgroups, groups.size(), groups.data()) == 0;  // NOLINT: variadic by nature
}

/// A number that is no account changes nothing: this asks.
uid_t userInForce() {
  return static_cast<uid_t>(::setfsuid(static_cast<uid_t>(-1)));
}

gid_t groupInForce() {
  return static_cast<gid_t>(::setfsgid(static_cast<gid_t>(-1)));
}

}  // namespace

std::optional<FileRights> fileRightsOf(const std::string& accountName) {
  const auto account = accountNamed(accountName);
  if (!account) return std::nullopt;
  return rightsOf(*account);
}

FileRights fileRightsOf(uid_t user) {
  const auto account = accountWithID(user);
  return account ? rightsOf(*account) : FileRights{user, kNoGroup};
}

FileRights rightsOfEverybody() {
  return {kNobody, kNoGroup};
}

FileRightsScope::FileRightsScope(const std::optional<FileRights>& rights) {
  if (!rights) return;
  changed_ = true;
  previousGroups_ = groupsInForce();
  inForce_ = setGroupsOfThread(rights->groups);
  previousGroup_ = static_cast<gid_t>(::setfsgid(rights->group));
  previousUser_ = static_cast<uid_t>(::setfsuid(rights->user));
  inForce_ = inForce_ && groupInForce() == rights->group && userInForce() == rights->user;
}

FileRightsScope::~FileRightsScope() {
  if (!changed_) return;
  const int reason = errno;
  ::setfsuid(previousUser_);
  ::setfsgid(previousGroup_);
  // A thread that could not get its groups back would only have fewer rights.
  static_cast<void>(setGroupsOfThread(previousGroups_));
  errno = reason;
}

}  // namespace platform
