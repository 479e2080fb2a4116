// fsgetpath(2).
#pragma once

#include <stdint.h>
#include <sys/mount.h>

#ifdef __cplusplus
extern "C" {
#endif
ssize_t fsgetpath(char*, size_t, fsid_t*, uint64_t);
#ifdef __cplusplus
}
#endif
