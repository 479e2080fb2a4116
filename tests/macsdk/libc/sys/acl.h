// acl(3) of a Mac, as far as the Mac's backend uses it.
#pragma once

typedef struct _acl* acl_t;
typedef enum { ACL_TYPE_EXTENDED = 0x00000100 } acl_type_t;

#ifdef __cplusplus
extern "C" {
#endif
acl_t acl_init(int);
int acl_free(void*);
acl_t acl_get_fd_np(int, acl_type_t);
int acl_set_fd_np(int, acl_t, acl_type_t);
#ifdef __cplusplus
}
#endif
