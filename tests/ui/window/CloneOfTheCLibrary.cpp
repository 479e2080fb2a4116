// QProcess starts its programs by clone(2) with the memory shared, and clang 14's ThreadSanitizer takes the
// child for one with a memory of its own: it ends the process. Here the toolkit finds the C library's
// function instead.
#include <dlfcn.h>
#include <sched.h>
#include <sys/types.h>

#include <cstdarg>

extern "C" int clone(int (*function)(void*), void* stack, int flags, void* argument, ...) {
  using Clone = int (*)(int (*)(void*), void*, int, void*, pid_t*, void*, pid_t*);
  static const auto real = reinterpret_cast<Clone>(dlsym(RTLD_NEXT, "clone"));
  va_list more;
  va_start(more, argument);
  auto* const parent = va_arg(more, pid_t*);
  void* const storage = va_arg(more, void*);
  auto* const child = va_arg(more, pid_t*);
  va_end(more);
  return real(function, stack, flags, argument, parent, storage, child);
}
