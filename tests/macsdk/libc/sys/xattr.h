// getxattr(2) and its kin of a Mac.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#define XATTR_NOFOLLOW 0x0001

#ifdef __cplusplus
extern "C" {
#endif
ssize_t getxattr(const char*, const char*, void*, size_t, uint32_t, int);
int setxattr(const char*, const char*, const void*, size_t, uint32_t, int);
int fsetxattr(int, const char*, const void*, size_t, uint32_t, int);
ssize_t flistxattr(int, char*, size_t, int);
#ifdef __cplusplus
}
#endif
