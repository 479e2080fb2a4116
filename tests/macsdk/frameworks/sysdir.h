// sysdir(3): where the system's folders lie.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int sysdir_search_path_enumeration_state;
typedef enum {
  SYSDIR_DIRECTORY_APPLICATION = 1,
  SYSDIR_DIRECTORY_APPLICATION_SUPPORT = 14
} sysdir_search_path_directory_t;
typedef enum { SYSDIR_DOMAIN_MASK_USER = 1, SYSDIR_DOMAIN_MASK_SYSTEM = 8 } sysdir_search_path_domain_mask_t;

sysdir_search_path_enumeration_state sysdir_start_search_path_enumeration(sysdir_search_path_directory_t,
                                                                          sysdir_search_path_domain_mask_t);
sysdir_search_path_enumeration_state sysdir_get_next_search_path_enumeration(
    sysdir_search_path_enumeration_state, char* path);
#ifdef __cplusplus
}
#endif
