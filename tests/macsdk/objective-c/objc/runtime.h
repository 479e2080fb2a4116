// What GNUstep's headers name of a Mac's Objective-C runtime (and the backend does not use).
#pragma once

#include <objc/objc.h>
#include <stddef.h>

typedef struct objc_method* Method;
typedef struct objc_ivar* Ivar;
typedef struct objc_property* objc_property_t;
#ifdef __OBJC__
@class Protocol;
#else
typedef struct objc_object Protocol;
#endif

#ifdef __cplusplus
extern "C" {
#endif
Class objc_lookUpClass(const char*);
Class objc_getClass(const char*);
Class object_getClass(id);
Class class_getSuperclass(Class);
const char* class_getName(Class);
#ifdef __cplusplus
}
#endif
