#include <dlfcn.h>
#include <grp.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/Accounts.h"
#include "platform/posix/FileRights.h"

namespace platform {
namespace {

constexpr auto kNobody = static_cast<uid_t>(-2);
constexpr auto kNoGroup = static_cast<gid_t>(-2);
/// KAUTH_UID_NONE, KAUTH_GID_NONE: the thread has the rights of its process again.
constexpr auto kProcesss = static_cast<uid_t>(-101);

/// Looked up, because they are in the system's library and in no header of every SDK.
using SetThreadsUser = int(uid_t, gid_t);
using GetThreadsUser = int(uid_t*, gid_t*);

template <typename Function>
Function* found(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_DEFAULT, name));
}

/// -1 where the system has no such function any more.
int setThreadsUser(uid_t user, gid_t group) {
  static auto* const set = found<SetThreadsUser>("pthread_setugid_np");
  return set == nullptr ? -1 : set(user, group);
}

bool isThreadsUser(uid_t user, gid_t group) {
  static auto* const get = found<GetThreadsUser>("pthread_getugid_np");
  uid_t userNow = 0;
  gid_t groupNow = 0;
  return get != nullptr && get(&userNow, &groupNow) == 0 && userNow == user && groupNow == group;
}

}  // namespace

std::optional<FileRights> fileRightsOf(const std::string& accountName) {
  const auto account = accountNamed(accountName);
  if (!account) return std::nullopt;
  return FileRights{account->user, account->group};
}

FileRights fileRightsOf(uid_t user) {
  const auto account = accountWithID(user);
  return account ? FileRights{account->user, account->group} : FileRights{user, kNoGroup};
}

FileRights rightsOfEverybody() {
  return {kNobody, kNoGroup};
}

/// The kernel asks the directory service for the groups of a thread's user.
FileRightsScope::FileRightsScope(const std::optional<FileRights>& rights) {
  if (!rights) return;
  const int reason = errno;
  changed_ = setThreadsUser(rights->user, rights->group) == 0;
  inForce_ = changed_ && isThreadsUser(rights->user, rights->group);
  errno = reason;
}

FileRightsScope::~FileRightsScope() {
  if (!changed_) return;
  const int reason = errno;
  // A thread that could not get its own back would only have fewer rights.
  static_cast<void>(setThreadsUser(kProcesss, kProcesss));
  errno = reason;
}

}  // namespace platform
