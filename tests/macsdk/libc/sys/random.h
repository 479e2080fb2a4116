// getentropy(2).
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
int getentropy(void*, size_t);
#ifdef __cplusplus
}
#endif
