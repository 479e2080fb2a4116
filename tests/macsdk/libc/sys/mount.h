// statfs(2) of a Mac with 64-bit inode numbers.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#define MNT_NOSUID 0x00000008
#define MNT_NODEV 0x00000010

typedef struct {
  int32_t val[2];
} fsid_t;

struct statfs {
  uint32_t f_bsize;
  int32_t f_iosize;
  uint64_t f_blocks;
  uint64_t f_bfree;
  uint64_t f_bavail;
  uint64_t f_files;
  uint64_t f_ffree;
  fsid_t f_fsid;
  uid_t f_owner;
  uint32_t f_type;
  uint32_t f_flags;
  uint32_t f_fssubtype;
  char f_fstypename[16];
  char f_mntonname[1024];
  char f_mntfromname[1024];
  uint32_t f_flags_ext;
  uint32_t f_reserved[7];
};

#ifdef __cplusplus
extern "C" {
#endif
int statfs(const char*, struct statfs*);
int fstatfs(int, struct statfs*);
#ifdef __cplusplus
}
#endif
