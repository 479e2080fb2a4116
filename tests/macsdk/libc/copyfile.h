// copyfile(3), as far as the Mac's backend uses it.
#pragma once

#include <stdint.h>

typedef struct _copyfile_state* copyfile_state_t;
typedef uint32_t copyfile_flags_t;

#define COPYFILE_ACL (1 << 0)
#define COPYFILE_STAT (1 << 1)
#define COPYFILE_XATTR (1 << 2)
#define COPYFILE_DATA (1 << 3)

#ifdef __cplusplus
extern "C" {
#endif
int fcopyfile(int, int, copyfile_state_t, copyfile_flags_t);
#ifdef __cplusplus
}
#endif
