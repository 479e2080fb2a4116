// The standard streams under the names that a Mac's C library gives them, and renameatx_np(2); the rest is
// musl's.
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

#define RENAME_SWAP 0x00000002
#define RENAME_EXCL 0x00000004
#ifdef __cplusplus
extern "C" {
#endif
int renameatx_np(int, const char*, int, const char*, unsigned int);
#ifdef __cplusplus
}
#endif
