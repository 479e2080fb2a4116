// The part of Core Foundation that the Mac's backend uses, declared after Apple's public reference
// documentation.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef UInt16 UniChar;

typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef const void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFDate* CFDateRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFURL* CFURLRef;
typedef const struct __CFUUID* CFUUIDRef;
typedef struct __CFError* CFErrorRef;
typedef struct __CFBundle* CFBundleRef;
typedef struct __CFNotificationCenter* CFNotificationCenterRef;

typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

CFTypeRef CFRetain(CFTypeRef);
void CFRelease(CFTypeRef);
CFTypeID CFGetTypeID(CFTypeRef);
extern const CFAllocatorRef kCFAllocatorDefault;

// CFString.h
typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingUTF8 = 0x08000100 };
CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8*, CFIndex numBytes, CFStringEncoding,
                                    Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar*, CFIndex numChars);
CFIndex CFStringGetLength(CFStringRef);
CFIndex CFStringGetBytes(CFStringRef, CFRange, CFStringEncoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex maxBufLen,
                         CFIndex* usedBufLen);

// CFData.h
CFTypeID CFDataGetTypeID(void);
CFDataRef CFDataCreate(CFAllocatorRef, const UInt8*, CFIndex length);
const UInt8* CFDataGetBytePtr(CFDataRef);
CFIndex CFDataGetLength(CFDataRef);

// CFNumber.h
typedef CFIndex CFNumberType;
enum { kCFNumberSInt32Type = 3, kCFNumberSInt64Type = 4, kCFNumberFloat64Type = 6 };
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef);
CFTypeID CFNumberGetTypeID(void);
CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType, const void* valuePtr);
Boolean CFNumberIsFloatType(CFNumberRef);
Boolean CFNumberGetValue(CFNumberRef, CFNumberType, void* valuePtr);

// CFDate.h
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;
CFTypeID CFDateGetTypeID(void);
CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef);

// CFArray.h, CFDictionary.h: the layouts of the call-backs matter to nobody who only hands their addresses
// on.
typedef struct {
  CFIndex version;
  const void* functions[4];
} CFArrayCallBacks;
typedef struct {
  CFIndex version;
  const void* functions[5];
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* functions[4];
} CFDictionaryValueCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFTypeID CFArrayGetTypeID(void);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex capacity, const CFArrayCallBacks*);
void CFArrayAppendValue(CFMutableArrayRef, const void*);
CFIndex CFArrayGetCount(CFArrayRef);
const void* CFArrayGetValueAtIndex(CFArrayRef, CFIndex);
CFTypeID CFDictionaryGetTypeID(void);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks*,
                                                 const CFDictionaryValueCallBacks*);
void CFDictionarySetValue(CFMutableDictionaryRef, const void* key, const void* value);
CFIndex CFDictionaryGetCount(CFDictionaryRef);
void CFDictionaryGetKeysAndValues(CFDictionaryRef, const void** keys, const void** values);

// CFPropertyList.h
typedef CFIndex CFPropertyListFormat;
enum { kCFPropertyListXMLFormat_v1_0 = 100, kCFPropertyListBinaryFormat_v1_0 = 200 };
enum { kCFPropertyListImmutable = 0 };
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef, CFOptionFlags,
                                               CFPropertyListFormat*, CFErrorRef*);
CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef, CFPropertyListFormat, CFOptionFlags,
                                   CFErrorRef*);

// CFPreferences.h
extern const CFStringRef kCFPreferencesAnyHost;
extern const CFStringRef kCFPreferencesCurrentHost;
extern const CFStringRef kCFPreferencesAnyUser;
extern const CFStringRef kCFPreferencesCurrentUser;
CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID, CFStringRef userName,
                                         CFStringRef hostName);
void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID,
                           CFStringRef userName, CFStringRef hostName);
Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName, CFStringRef hostName);

// CFURL.h
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8*, CFIndex length,
                                                 Boolean isDirectory);
Boolean CFURLGetFileSystemRepresentation(CFURLRef, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex maxBufLen);
CFStringRef CFURLGetString(CFURLRef);
CFURLRef CFURLCreateWithBytes(CFAllocatorRef, const UInt8*, CFIndex length, CFStringEncoding,
                              CFURLRef baseURL);

// CFBundle.h
CFBundleRef CFBundleGetMainBundle(void);
CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef);
CFURLRef CFBundleCopyBundleURL(CFBundleRef);
CFURLRef CFBundleCopyExecutableURL(CFBundleRef);
CFURLRef CFBundleCopyResourceURL(CFBundleRef, CFStringRef name, CFStringRef type, CFStringRef subDirName);
CFStringRef CFBundleCopyLocalizedString(CFBundleRef, CFStringRef key, CFStringRef value,
                                        CFStringRef tableName);
CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef);

// CFNotificationCenter.h
enum { kCFNotificationDeliverImmediately = 1UL << 0, kCFNotificationPostToAllSessions = 1UL << 1 };
CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void);
void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef, CFStringRef name,
                                                     const void* object, CFDictionaryRef userInfo,
                                                     CFOptionFlags options);

// CFUserNotification.h
enum { kCFUserNotificationNoteAlertLevel = 1 };
SInt32 CFUserNotificationDisplayAlert(CFTimeInterval timeout, CFOptionFlags flags, CFURLRef iconURL,
                                      CFURLRef soundURL, CFURLRef localizationURL, CFStringRef alertHeader,
                                      CFStringRef alertMessage, CFStringRef defaultButtonTitle,
                                      CFStringRef alternateButtonTitle, CFStringRef otherButtonTitle,
                                      CFOptionFlags* responseFlags);

// CFRunLoop.h
typedef struct __CFRunLoop* CFRunLoopRef;
enum { kCFRunLoopRunFinished = 1 };
extern const CFStringRef kCFRunLoopDefaultMode;
CFRunLoopRef CFRunLoopGetCurrent(void);
SInt32 CFRunLoopRunInMode(CFStringRef mode, CFTimeInterval seconds, Boolean returnAfterSourceHandled);

// CFUUID.h
CFUUIDRef CFUUIDCreate(CFAllocatorRef);
CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef);

#ifdef __cplusplus
}
#endif
