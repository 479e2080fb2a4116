// open(2), fcntl(2) of a Mac.
#pragma once

#include <sys/types.h>

#define O_RDONLY 0x0000
#define O_WRONLY 0x0001
#define O_RDWR 0x0002
#define O_ACCMODE 0x0003
#define O_NONBLOCK 0x00000004
#define O_APPEND 0x00000008
#define O_SYNC 0x0080
#define O_NOFOLLOW 0x00000100
#define O_CREAT 0x00000200
#define O_TRUNC 0x00000400
#define O_EXCL 0x00000800
#define O_EVTONLY 0x00008000
#define O_NOCTTY 0x00020000
#define O_DIRECTORY 0x00100000
#define O_SYMLINK 0x00200000
#define O_CLOEXEC 0x01000000

#define AT_FDCWD -2
#define AT_EACCESS 0x0010
#define AT_SYMLINK_NOFOLLOW 0x0020
#define AT_SYMLINK_FOLLOW 0x0040
#define AT_REMOVEDIR 0x0080

#define F_DUPFD 0
#define F_GETFD 1
#define F_SETFD 2
#define F_GETFL 3
#define F_SETFL 4
#define F_GETPATH 50
#define F_NOCACHE 48
#define F_FULLFSYNC 51
#define F_DUPFD_CLOEXEC 67
#define FD_CLOEXEC 1

#ifdef __cplusplus
extern "C" {
#endif
int open(const char*, int, ...);
int openat(int, const char*, int, ...);
int creat(const char*, mode_t);
int fcntl(int, int, ...);
#ifdef __cplusplus
}
#endif
