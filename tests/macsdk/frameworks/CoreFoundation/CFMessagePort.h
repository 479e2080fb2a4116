// The part of Core Foundation's message ports that the Mac's backend uses, declared after Apple's public
// reference documentation.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct __CFMessagePort* CFMessagePortRef;
enum { kCFMessagePortSuccess = 0, kCFMessagePortSendTimeout = -1, kCFMessagePortReceiveTimeout = -2 };

CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef name);
SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout, CFStringRef replyMode,
                                CFDataRef* returnData);

#ifdef __cplusplus
}
#endif
