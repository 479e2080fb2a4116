// The arguments and the environment of a Mac's program.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
int* _NSGetArgc(void);
char*** _NSGetArgv(void);
char*** _NSGetEnviron(void);
#ifdef __cplusplus
}
#endif
