#pragma once

#include <sys/acl.h>

#include <memory>
#include <type_traits>

namespace platform {

struct FreeAccessList {
  void operator()(acl_t list) const { ::acl_free(list); }
};

/// A list of acl(3).
using ExtendedAccessList = std::unique_ptr<std::remove_pointer_t<acl_t>, FreeAccessList>;

/// The list of what is open or held; none where errno is ENOENT.
inline ExtendedAccessList accessListOf(int item) {
  return ExtendedAccessList(::acl_get_fd_np(item, ACL_TYPE_EXTENDED));
}

}  // namespace platform
