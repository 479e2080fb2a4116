// The types of a Mac's Objective-C runtime, declared after Apple's public reference documentation.
#pragma once

typedef struct objc_class* Class;
typedef struct objc_object {
  Class isa;
} * id;
typedef struct objc_selector* SEL;
typedef id (*IMP)(id, SEL, ...);

// A bool on today's processors, a signed char on those before.
#if defined(__OBJC_BOOL_IS_BOOL) && __OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif
#define YES __objc_yes
#define NO __objc_no

#ifndef nil
#define nil nullptr
#endif
#ifndef Nil
#define Nil nullptr
#endif

#ifdef __cplusplus
extern "C" {
#endif
const char* sel_getName(SEL);
SEL sel_registerName(const char*);
const char* object_getClassName(id);
void* object_getIndexedIvars(id);
#ifdef __cplusplus
}
#endif
