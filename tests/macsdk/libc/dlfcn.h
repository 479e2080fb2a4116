// dlopen(3), dlsym(3) of a Mac.
#pragma once

#define RTLD_LAZY 0x1
#define RTLD_NOW 0x2
#define RTLD_LOCAL 0x4
#define RTLD_GLOBAL 0x8
#define RTLD_DEFAULT ((void*)-2)

#ifdef __cplusplus
extern "C" {
#endif
void* dlopen(const char*, int);
void* dlsym(void*, const char*);
int dlclose(void*);
char* dlerror(void);
#ifdef __cplusplus
}
#endif
