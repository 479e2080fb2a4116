// setattrlist(2), as far as the Mac's backend uses it. A Mac declares the function in unistd.h.
#pragma once

#include <stddef.h>
#include <stdint.h>

typedef uint32_t attrgroup_t;

struct attrlist {
  unsigned short bitmapcount;
  uint16_t reserved;
  attrgroup_t commonattr;
  attrgroup_t volattr;
  attrgroup_t dirattr;
  attrgroup_t fileattr;
  attrgroup_t forkattr;
};

#define ATTR_BIT_MAP_COUNT 5
#define ATTR_CMN_OWNERID 0x00008000
#define ATTR_CMN_GRPID 0x00010000
#define ATTR_CMN_ACCESSMASK 0x00020000

#ifdef __cplusplus
extern "C" {
#endif
int fsetattrlist(int, void*, void*, size_t, unsigned int);
#ifdef __cplusplus
}
#endif
