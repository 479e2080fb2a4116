// The C library's types with the sizes and signs that they have on a Mac with 64 bits. The other headers of
// the C library are musl's and ask for their types here.
#ifndef MACSDK_ALLTYPES_H
#define MACSDK_ALLTYPES_H

#define __BYTE_ORDER 1234
#define __LITTLE_ENDIAN 1234
#define __BIG_ENDIAN 4321
#define __LONG_MAX 0x7fffffffffffffffL
#define __USE_TIME_BITS64 1

typedef __SIZE_TYPE__ size_t;
typedef __PTRDIFF_TYPE__ ptrdiff_t;
typedef long ssize_t;
typedef long intptr_t;
typedef unsigned long uintptr_t;
typedef long register_t;
typedef float float_t;
typedef double double_t;

typedef signed char int8_t;
typedef short int16_t;
typedef int int32_t;
typedef long long int64_t;
typedef long intmax_t;
typedef unsigned char uint8_t;
typedef unsigned short uint16_t;
typedef unsigned int uint32_t;
typedef unsigned long long uint64_t;
typedef unsigned long long u_int64_t;
typedef unsigned long uintmax_t;

typedef int32_t dev_t;
typedef uint16_t mode_t;
typedef uint16_t nlink_t;
typedef uint64_t ino_t;
typedef int64_t off_t;
typedef int32_t blksize_t;
typedef int64_t blkcnt_t;
typedef unsigned int fsblkcnt_t;
typedef unsigned int fsfilcnt_t;
typedef uint32_t uid_t;
typedef uint32_t gid_t;
typedef uint32_t id_t;
typedef int32_t pid_t;
typedef int32_t key_t;
typedef uint32_t useconds_t;
typedef int32_t suseconds_t;
typedef long time_t;
typedef unsigned long clock_t;
typedef int clockid_t;
typedef void* timer_t;
typedef uint32_t sigset_t;
typedef uint32_t socklen_t;
typedef uint8_t sa_family_t;
typedef int regoff_t;
typedef int wint_t;
typedef uint32_t wctype_t;

struct timeval {
  time_t tv_sec;
  suseconds_t tv_usec;
};
struct timespec {
  time_t tv_sec;
  long tv_nsec;
};
struct iovec {
  void* iov_base;
  size_t iov_len;
};
struct winsize {
  unsigned short ws_row, ws_col, ws_xpixel, ws_ypixel;
};

typedef struct MacOpaqueThread* pthread_t;
typedef unsigned long pthread_key_t;
typedef struct {
  long signature;
  char opaque[8];
} pthread_once_t;
typedef struct {
  long signature;
  char opaque[8];
} pthread_mutexattr_t;
typedef struct {
  long signature;
  char opaque[8];
} pthread_condattr_t;
typedef struct {
  long signature;
  char opaque[16];
} pthread_rwlockattr_t;
typedef struct {
  long signature;
  char opaque[56];
} pthread_attr_t, pthread_mutex_t;
typedef struct {
  long signature;
  char opaque[40];
} pthread_cond_t;
typedef struct {
  long signature;
  char opaque[192];
} pthread_rwlock_t;
typedef int pthread_spinlock_t;
typedef struct {
  int unused;
} pthread_barrier_t, pthread_barrierattr_t;

struct _IO_FILE {
  char opaque[152];
};
typedef struct _IO_FILE FILE;
typedef __builtin_va_list va_list;
typedef __builtin_va_list __isoc_va_list;
typedef union {
  char opaque[128];
  long long alignment;
} mbstate_t;
typedef struct MacOpaqueLocale* locale_t;
struct max_align_tag {
  long long whole;
  long double real;
};
#ifndef __cplusplus
typedef __WCHAR_TYPE__ wchar_t;
#endif

#endif
