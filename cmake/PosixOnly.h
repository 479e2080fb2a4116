// Put before every source of the core, which is to build on any POSIX system: a call or a flag of Linux's own
// does not compile there. (Without _GNU_SOURCE the C++ library's own headers do not compile.)

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#pragma GCC poison renameat2 statx getrandom setfsuid setfsgid gettid pipe2 dup3 accept4 close_range execvpe
#pragma GCC poison getxattr lgetxattr fgetxattr setxattr lsetxattr fsetxattr listxattr flistxattr removexattr
#pragma GCC poison prctl unshare setns mount umount2 memfd_create copy_file_range sendfile splice
#pragma GCC poison pidfd_open pidfd_send_signal signalfd eventfd timerfd_create epoll_create1 inotify_init1
#pragma GCC poison secure_getenv program_invocation_name program_invocation_short_name canonicalize_file_name
#undef O_PATH
#undef O_TMPFILE
#undef O_DIRECT
#undef AT_EMPTY_PATH
#undef AT_NO_AUTOMOUNT
#undef RENAME_NOREPLACE
#pragma GCC poison O_PATH O_TMPFILE O_DIRECT AT_EMPTY_PATH AT_NO_AUTOMOUNT RENAME_NOREPLACE
