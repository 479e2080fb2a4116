// The standard streams under the names that a Mac's C library gives them; the rest is musl's.
#pragma once

#include_next <stdio.h>

#undef stdin
#undef stdout
#undef stderr
#ifdef __cplusplus
extern "C" {
#endif
extern FILE* __stdinp;
extern FILE* __stdoutp;
extern FILE* __stderrp;
#ifdef __cplusplus
}
#endif
#define stdin __stdinp
#define stdout __stdoutp
#define stderr __stderrp
