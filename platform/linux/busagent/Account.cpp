#include "platform/linux/busagent/Account.h"

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <vector>

namespace busagent {

namespace {

struct Identity {
  uid_t user;
  gid_t group;
};

std::optional<Identity> identityOf(const std::string& name) {
  std::vector<char> buffer(4096);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    if (buffer.size() > (1U << 20)) return std::nullopt;
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) return std::nullopt;
  return Identity{found->pw_uid, found->pw_gid};
}

bool isAlready(uid_t user) {
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
  return ::getresuid(&real, &effective, &saved) == 0 && real == user && effective == user && saved == user;
}

}  // namespace

bool becomeAccount(const std::string& name) {
  const auto identity = identityOf(name);
  if (!identity) return false;
  if (::geteuid() != 0) return isAlready(identity->user);
  if (::initgroups(name.c_str(), identity->group) != 0) return false;
  if (::setresgid(identity->group, identity->group, identity->group) != 0) return false;
  if (::setresuid(identity->user, identity->user, identity->user) != 0) return false;
  return isAlready(identity->user) && (identity->user == 0 || ::setuid(0) != 0);
}

bool renounceNewPrivileges() {
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

}  // namespace busagent
