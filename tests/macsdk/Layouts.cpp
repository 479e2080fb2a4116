// The layouts of a Mac's own structures, checked on both of its processors.
#include <CoreServices/CoreServices.h>
#include <Security/Authorization.h>
#include <dirent.h>
#include <fcntl.h>
#include <libproc.h>
#include <pthread.h>
#include <signal.h>
#include <sys/attr.h>
#include <sys/event.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

static_assert(sizeof(struct stat) == 144);
static_assert(offsetof(struct stat, st_ino) == 8);
static_assert(offsetof(struct stat, st_mtimespec) == 48);
static_assert(offsetof(struct stat, st_size) == 96);
static_assert(offsetof(struct stat, st_flags) == 116);
static_assert(sizeof(struct dirent) == 1048);
static_assert(offsetof(struct dirent, d_name) == 21);
static_assert(sizeof(struct sigaction) == 16);
static_assert(sizeof(siginfo_t) == 104);
static_assert(sizeof(pthread_mutex_t) == 64);
static_assert(sizeof(pthread_cond_t) == 48);
static_assert(sizeof(pthread_once_t) == 16);
static_assert(sizeof(mode_t) == 2 && sizeof(dev_t) == 4 && sizeof(nlink_t) == 2 && sizeof(ino_t) == 8);
// Descriptors are packed by two bytes.
static_assert(sizeof(AEDesc) == 12);
static_assert(sizeof(timespec) == 16 && sizeof(timeval) == 16);
static_assert(sizeof(AuthorizationItem) == 32 && offsetof(AuthorizationItem, value) == 16);
static_assert(sizeof(AuthorizationItemSet) == 16 && offsetof(AuthorizationItemSet, items) == 8);
static_assert(sizeof(CFIndex) == 8 && sizeof(CFRange) == 16 && sizeof(Boolean) == 1 && sizeof(OSStatus) == 4);
static_assert(sizeof(struct statfs) == 2168 && offsetof(struct statfs, f_fsid) == 48 &&
              offsetof(struct statfs, f_flags) == 64);
static_assert(sizeof(proc_bsdinfo) == 136 && offsetof(proc_bsdinfo, pbi_start_tvsec) == 120);
static_assert(sizeof(attrlist) == 24 && offsetof(attrlist, commonattr) == 4);
static_assert(sizeof(proc_fdinfo) == 8 && sizeof(struct kevent) == 32);
