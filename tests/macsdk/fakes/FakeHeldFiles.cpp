// Has this system's calls do for a descriptor of O_PATH what a Mac's do for one of O_EVTONLY, so that the
// Mac's way of holding items runs here: the program that this is linked into finds these before the C
// library's.

#include "tests/macsdk/fakes/FakeHeldFiles.h"

#include <fcntl.h>
#include <sys/attr.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <mutex>
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

int changeMode(int descriptor, mode_t mode) {
  if (::syscall(SYS_fchmod, descriptor, mode) == 0) return 0;
  return errno == EBADF ? ::fchmodat(proc, linkTo(descriptor).c_str(), mode, 0) : -1;
}

int changeOwner(int descriptor, uid_t owner, gid_t group) {
  return ::fchownat(descriptor, "", owner, group, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW);
}

std::mutex& guard() {
  static std::mutex only;
  return only;
}

std::vector<std::string>& changes() {
  static std::vector<std::string> only;
  return only;
}

void record(const char* call) {
  const std::scoped_lock lock(guard());
  changes().emplace_back(call);
}

}  // namespace

namespace fakes {

std::vector<std::string> changesOfHeldFiles() {
  const std::scoped_lock lock(guard());
  return changes();
}

void forgetChangesOfHeldFiles() {
  const std::scoped_lock lock(guard());
  changes().clear();
}

}  // namespace fakes

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

/// A Mac leaves the set-ID bits where the superuser calls.
int fchown(int descriptor, uid_t owner, gid_t group) {
  record("fchown");
  struct stat before {};
  if (::fstat(descriptor, &before) != 0 || changeOwner(descriptor, owner, group) != 0) return -1;
  if (S_ISREG(before.st_mode) && (before.st_mode & 06000U) != 0)
    return changeMode(descriptor, before.st_mode & 07777U);
  return 0;
}

int fchmod(int descriptor, mode_t mode) {
  record("fchmod");
  return changeMode(descriptor, mode);
}

int fsetattrlist(int descriptor, void* attributes, void* values, size_t size, unsigned int options) {
  record("fsetattrlist");
  const auto& list = *static_cast<const attrlist*>(attributes);
  std::array<std::uint32_t, 3> given{};  // owner, group and mode
  if (list.bitmapcount != ATTR_BIT_MAP_COUNT || size != sizeof given || options != 0 ||
      list.commonattr != (ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK)) {
    errno = EINVAL;
    return -1;
  }
  std::memcpy(given.data(), values, sizeof given);
  return changeOwner(descriptor, given[0], given[1]) == 0 ? changeMode(descriptor, given[2]) : -1;
}

int futimens(int descriptor, const timespec times[2]) {
  return ::utimensat(descriptor, "", times, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW);
}

}  // extern "C"
