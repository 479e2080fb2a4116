// errno of a Mac, intro(2).
#pragma once

#include <bits/errno.h>

#ifdef __cplusplus
extern "C" {
#endif
int* __error(void);
#ifdef __cplusplus
}
#endif
#define errno (*__error())
