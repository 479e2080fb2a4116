#include "tests/macsdk/fakes/FakeAccessLists.h"

#include <sys/stat.h>

#include <cerrno>

struct _acl_entry {
  acl_tag_t tag;
};

struct _acl {
  std::vector<_acl_entry> entries;
  std::size_t next = 0;
};

namespace {

using fakes::accessLists;

std::pair<dev_t, ino_t> itemOf(int descriptor) {
  struct stat status {};
  ::fstat(descriptor, &status);
  return {status.st_dev, status.st_ino};
}

}  // namespace

namespace fakes {

AccessListsState& accessLists() {
  static AccessListsState only;
  return only;
}

void giveAccessList(const std::string& path, AccessEntries entries) {
  struct stat status {};
  ::lstat(path.c_str(), &status);
  accessLists().lists[{status.st_dev, status.st_ino}] = std::move(entries);
}

}  // namespace fakes

extern "C" {

acl_t acl_init(int) {
  return new _acl;
}

int acl_free(void* list) {
  delete static_cast<_acl*>(list);
  return 0;
}

acl_t acl_get_fd_np(int item, acl_type_t) {
  const auto own = accessLists().lists.find(itemOf(item));
  const bool hasOwn = own != accessLists().lists.end();
  const fakes::AccessEntries& found = hasOwn ? own->second : accessLists().inherited;
  errno = accessLists().failure != 0 ? accessLists().failure : ENOENT;
  if (accessLists().failure != 0 || (!hasOwn && found.empty())) return nullptr;
  acl_t list = acl_init(0);
  for (const acl_tag_t tag : found) list->entries.push_back({tag});
  return list;
}

int acl_set_fd_np(int item, acl_t list, acl_type_t) {
  if (!accessLists().canBeTakenAway) {
    errno = EPERM;
    return -1;
  }
  fakes::AccessEntries& own = accessLists().lists[itemOf(item)];
  own.clear();
  for (const _acl_entry& entry : list->entries) own.push_back(entry.tag);
  return 0;
}

int acl_get_entry(acl_t list, int which, acl_entry_t* entry) {
  if (which == ACL_FIRST_ENTRY) list->next = 0;
  if (list->next == list->entries.size()) {
    errno = EINVAL;
    return -1;
  }
  *entry = &list->entries[list->next++];
  return 0;
}

int acl_get_tag_type(acl_entry_t entry, acl_tag_t* tag) {
  *tag = entry->tag;
  return 0;
}

}  // extern "C"
