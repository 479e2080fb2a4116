// The part of System Configuration that the Mac's backend uses, declared after Apple's public reference
// documentation.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCDynamicStore* SCDynamicStoreRef;

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef, uid_t*, gid_t*);

#ifdef __cplusplus
}
#endif
