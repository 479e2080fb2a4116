// Put before every source that is compiled for a Mac here: what musl's headers declare and a Mac lacks does
// not compile. (A header of Linux's own cannot be found at all.)

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#undef MSG_NOSIGNAL
#undef SOCK_CLOEXEC
#undef SOCK_NONBLOCK

#pragma GCC poison pipe2 dup3 accept4 posix_close fdatasync posix_fadvise clock_nanosleep timer_create
#pragma GCC poison sigwaitinfo sigtimedwait execveat fexecve ppoll timespec_getres
