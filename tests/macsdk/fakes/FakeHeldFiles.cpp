// Has this system's calls do for a descriptor of O_PATH what a Mac's do for one of O_EVTONLY, so that the
// Mac's way of holding items runs here: the program that this is linked into finds these before the C
// library's.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <string>

namespace {

constexpr int kGetPath = 50;  // F_GETPATH of a Mac, no command of this system

/// Found also where a test has made another folder its "/".
const int proc = ::open("/proc", O_PATH | O_DIRECTORY | O_CLOEXEC);

std::string linkTo(int descriptor) {
  return "self/fd/" + std::to_string(descriptor);
}

int getPath(int descriptor, char* path) {
  const ssize_t length = ::readlinkat(proc, linkTo(descriptor).c_str(), path, PATH_MAX - 1);
  if (length < 0) return -1;
  path[length] = '\0';
  return 0;
}

}  // namespace

extern "C" {

int fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (command == kGetPath) return getPath(descriptor, static_cast<char*>(argument));
  return static_cast<int>(::syscall(SYS_fcntl, descriptor, command, argument));
}

int fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return fcntl(descriptor, command, argument);
}

int fchown(int descriptor, uid_t owner, gid_t group) {
  return ::fchownat(descriptor, "", owner, group, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW);
}

int fchmod(int descriptor, mode_t mode) {
  if (::syscall(SYS_fchmod, descriptor, mode) == 0) return 0;
  return errno == EBADF ? ::fchmodat(proc, linkTo(descriptor).c_str(), mode, 0) : -1;
}

int futimens(int descriptor, const timespec times[2]) {
  return ::utimensat(descriptor, "", times, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW);
}

}  // extern "C"
