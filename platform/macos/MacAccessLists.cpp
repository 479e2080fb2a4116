#include <cerrno>

#include "platform/macos/ExtendedAccessList.h"
#include "platform/posix/AccessLists.h"

namespace platform {
namespace {

/// Of an entry of no known kind nothing is known.
bool allowsSomething(const ExtendedAccessList& list) {
  acl_entry_t entry = nullptr;
  for (int which = ACL_FIRST_ENTRY; ::acl_get_entry(list.get(), which, &entry) == 0; which = ACL_NEXT_ENTRY) {
    acl_tag_t kind = ACL_UNDEFINED_TAG;
    if (::acl_get_tag_type(entry, &kind) != 0 || kind != ACL_EXTENDED_DENY) return true;
  }
  return false;
}

}  // namespace

/// ENOENT is said where there is no list.
bool mayBeWrittenByList(int held, mode_t /*mode*/) {
  const ExtendedAccessList list = accessListOf(held);
  if (!list) return errno != ENOENT && errno != ENOTSUP;
  return allowsSomething(list);
}

void removeAccessLists(int folder) {
  const ExtendedAccessList none(::acl_init(1));
  if (none) static_cast<void>(::acl_set_fd_np(folder, none.get(), ACL_TYPE_EXTENDED));
}

}  // namespace platform
