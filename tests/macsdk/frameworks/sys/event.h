// kqueue(2), as far as the Mac's backend uses it.
#pragma once

#include <stdint.h>
#include <time.h>

#define EVFILT_PROC (-5)
#define EV_ADD 0x0001
#define NOTE_EXIT 0x80000000

#pragma pack(push, 4)
struct kevent {
  uintptr_t ident;
  int16_t filter;
  uint16_t flags;
  uint32_t fflags;
  intptr_t data;
  void* udata;
};
#pragma pack(pop)

#ifdef __cplusplus
extern "C" {
#endif
int kqueue(void);
int kevent(int, const struct kevent*, int, struct kevent*, int, const struct timespec*);
#ifdef __cplusplus
}
#endif
