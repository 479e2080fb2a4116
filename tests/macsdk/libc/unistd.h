// A name of confstr(3) that a Mac has besides those of POSIX; the rest is musl's.
#pragma once

#include_next <unistd.h>

#define _CS_DARWIN_USER_TEMP_DIR 65537
