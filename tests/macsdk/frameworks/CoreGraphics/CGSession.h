// The window server's sessions, declared after Apple's public reference documentation.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

CFDictionaryRef CGSessionCopyCurrentDictionary(void);

#ifdef __cplusplus
}
#endif
