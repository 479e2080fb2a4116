// A name of confstr(3) that a Mac has besides those of POSIX, and lseek(2) by holes; the rest is musl's.
#pragma once

#include_next <unistd.h>

#define _CS_DARWIN_USER_TEMP_DIR 65537
#undef SEEK_HOLE
#undef SEEK_DATA
#define SEEK_HOLE 3
#define SEEK_DATA 4
