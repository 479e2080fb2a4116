// acl(3) of a Mac, as far as the Mac's backend uses it.
#pragma once

typedef struct _acl* acl_t;
typedef struct _acl_entry* acl_entry_t;
typedef enum { ACL_TYPE_EXTENDED = 0x00000100 } acl_type_t;
typedef enum { ACL_FIRST_ENTRY = 0, ACL_NEXT_ENTRY = -1 } acl_entry_id_t;
typedef enum { ACL_UNDEFINED_TAG = 0, ACL_EXTENDED_ALLOW = 1, ACL_EXTENDED_DENY = 2 } acl_tag_t;

#ifdef __cplusplus
extern "C" {
#endif
acl_t acl_init(int);
int acl_free(void*);
int acl_get_entry(acl_t, int, acl_entry_t*);
int acl_get_tag_type(acl_entry_t, acl_tag_t*);
acl_t acl_get_fd_np(int, acl_type_t);
int acl_set_fd_np(int, acl_t, acl_type_t);
#ifdef __cplusplus
}
#endif
