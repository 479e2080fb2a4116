// stat(2), chmod(2), mkdir(2), chflags(2) of a Mac with 64-bit inode numbers.
#pragma once

#include <sys/types.h>
#include <time.h>

struct stat {
  dev_t st_dev;
  mode_t st_mode;
  nlink_t st_nlink;
  ino_t st_ino;
  uid_t st_uid;
  gid_t st_gid;
  dev_t st_rdev;
  struct timespec st_atimespec;
  struct timespec st_mtimespec;
  struct timespec st_ctimespec;
  struct timespec st_birthtimespec;
  off_t st_size;
  blkcnt_t st_blocks;
  blksize_t st_blksize;
  uint32_t st_flags;
  uint32_t st_gen;
  int32_t st_lspare;
  int64_t st_qspare[2];
};

#define S_IFMT 0170000
#define S_IFIFO 0010000
#define S_IFCHR 0020000
#define S_IFDIR 0040000
#define S_IFBLK 0060000
#define S_IFREG 0100000
#define S_IFLNK 0120000
#define S_IFSOCK 0140000
#define S_ISFIFO(mode) (((mode)&S_IFMT) == S_IFIFO)
#define S_ISCHR(mode) (((mode)&S_IFMT) == S_IFCHR)
#define S_ISDIR(mode) (((mode)&S_IFMT) == S_IFDIR)
#define S_ISBLK(mode) (((mode)&S_IFMT) == S_IFBLK)
#define S_ISREG(mode) (((mode)&S_IFMT) == S_IFREG)
#define S_ISLNK(mode) (((mode)&S_IFMT) == S_IFLNK)
#define S_ISSOCK(mode) (((mode)&S_IFMT) == S_IFSOCK)
#define S_ISUID 0004000
#define S_ISGID 0002000
#define S_ISVTX 0001000
#define S_IRWXU 0000700
#define S_IRUSR 0000400
#define S_IWUSR 0000200
#define S_IXUSR 0000100
#define S_IRWXG 0000070
#define S_IRGRP 0000040
#define S_IWGRP 0000020
#define S_IXGRP 0000010
#define S_IRWXO 0000007
#define S_IROTH 0000004
#define S_IWOTH 0000002
#define S_IXOTH 0000001

#define UF_SETTABLE 0x0000ffff
#define UF_IMMUTABLE 0x00000002
#define UF_APPEND 0x00000004
#define SF_IMMUTABLE 0x00020000

#define UTIME_NOW -1
#define UTIME_OMIT -2

#ifdef __cplusplus
extern "C" {
#endif
int stat(const char*, struct stat*);
int lstat(const char*, struct stat*);
int fstat(int, struct stat*);
int fstatat(int, const char*, struct stat*, int);
int chmod(const char*, mode_t);
int fchmod(int, mode_t);
int fchmodat(int, const char*, mode_t, int);
int lchmod(const char*, mode_t);
int mkdir(const char*, mode_t);
int mkdirat(int, const char*, mode_t);
int mkfifo(const char*, mode_t);
mode_t umask(mode_t);
int chflags(const char*, uint32_t);
int lchflags(const char*, uint32_t);
int fchflags(int, uint32_t);
int futimens(int, const struct timespec[2]);
int utimensat(int, const char*, const struct timespec[2], int);
#ifdef __cplusplus
}
#endif
