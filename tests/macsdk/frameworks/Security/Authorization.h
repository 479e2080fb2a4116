// The part of Authorization Services that the Mac's backend uses, declared after Apple's public reference
// documentation.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct AuthorizationOpaqueRef* AuthorizationRef;
typedef UInt32 AuthorizationFlags;
typedef const char* AuthorizationString;

typedef struct {
  AuthorizationString name;
  size_t valueLength;
  void* value;
  UInt32 flags;
} AuthorizationItem;

typedef struct {
  UInt32 count;
  AuthorizationItem* items;
} AuthorizationItemSet;

typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;

enum {
  errAuthorizationSuccess = 0,
  errAuthorizationInvalidRef = -60002,
  errAuthorizationDenied = -60005,
  errAuthorizationCanceled = -60006,
  errAuthorizationInteractionNotAllowed = -60007,
  errAuthorizationInternal = -60008,
  errAuthorizationToolExecuteFailure = -60031
};
enum {
  kAuthorizationFlagDefaults = 0,
  kAuthorizationFlagInteractionAllowed = 1 << 0,
  kAuthorizationFlagExtendRights = 1 << 1,
  kAuthorizationFlagPartialRights = 1 << 2,
  kAuthorizationFlagDestroyRights = 1 << 3,
  kAuthorizationFlagPreAuthorize = 1 << 4
};
#define kAuthorizationEnvironmentUsername "username"
#define kAuthorizationEnvironmentPassword "password"

OSStatus AuthorizationCreate(const AuthorizationRights*, const AuthorizationEnvironment*, AuthorizationFlags,
                             AuthorizationRef*);
OSStatus AuthorizationFree(AuthorizationRef, AuthorizationFlags);
OSStatus AuthorizationCopyRights(AuthorizationRef, const AuthorizationRights*,
                                 const AuthorizationEnvironment*, AuthorizationFlags,
                                 AuthorizationRights** authorizedRights);
OSStatus AuthorizationCopyPrivilegedReference(AuthorizationRef*, AuthorizationFlags);
OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef, const char* pathToTool, AuthorizationFlags,
                                            char* const* arguments, FILE** communicationsPipe);

#ifdef __cplusplus
}
#endif
