// Core Foundation, as far as the Mac's backend uses it beside Objective-C, on Foundation: on a Mac the two
// are one (toll-free bridged), and here the objects that this makes are Foundation's. What it makes is really
// retained, released and sent; it records nothing.

#include "tests/platform/gnustep/CoreFoundationOnFoundation.h"

#include <CoreFoundation/CFMessagePort.h>

#import <Foundation/Foundation.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

enum Kind : CFTypeID { kString = 1, kData, kBoolean, kNumber, kDate, kArray, kDictionary, kURL, kOther };

id objectOf(const void* reference) {
  return static_cast<id>(const_cast<void*>(reference));
}

template <typename Reference>
Reference owned(id object) {
  const void* const bridged = [object retain];
  return static_cast<Reference>(const_cast<void*>(bridged));
}

id booleanObject(bool flag) {
  return [NSNumber numberWithBool:flag ? YES : NO];
}

bool isBoolean(id object) {
  return [object class] == [booleanObject(true) class];
}

bool isFloat(NSNumber* number) {
  return std::strchr("fd", *[number objCType]) != nullptr;
}

}  // namespace

CFBooleanRef gnustep::booleanReference(bool flag) {
  @autoreleasepool {
    return owned<CFBooleanRef>(booleanObject(flag));
  }
}

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFArrayCallBacks kCFTypeArrayCallBacks = {};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};

CFTypeRef CFRetain(CFTypeRef object) {
  return owned<CFTypeRef>(objectOf(object));
}

void CFRelease(CFTypeRef object) {
  [objectOf(object) release];
}

CFTypeID CFGetTypeID(CFTypeRef reference) {
  const id object = objectOf(reference);
  if ([object isKindOfClass:[NSString class]]) return kString;
  if ([object isKindOfClass:[NSData class]]) return kData;
  if (isBoolean(object)) return kBoolean;
  if ([object isKindOfClass:[NSNumber class]]) return kNumber;
  if ([object isKindOfClass:[NSDate class]]) return kDate;
  if ([object isKindOfClass:[NSArray class]]) return kArray;
  if ([object isKindOfClass:[NSDictionary class]]) return kDictionary;
  return kOther;
}

CFTypeID CFStringGetTypeID(void) {
  return kString;
}
CFTypeID CFDataGetTypeID(void) {
  return kData;
}
CFTypeID CFBooleanGetTypeID(void) {
  return kBoolean;
}
CFTypeID CFNumberGetTypeID(void) {
  return kNumber;
}
CFTypeID CFDateGetTypeID(void) {
  return kDate;
}
CFTypeID CFArrayGetTypeID(void) {
  return kArray;
}
CFTypeID CFDictionaryGetTypeID(void) {
  return kDictionary;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex numBytes, CFStringEncoding,
                                    Boolean) {
  const void* const made = [[NSString alloc] initWithBytes:bytes
                                                    length:static_cast<NSUInteger>(numBytes)
                                                  encoding:NSUTF8StringEncoding];
  return static_cast<CFStringRef>(made);
}

CFIndex CFStringGetLength(CFStringRef string) {
  return static_cast<CFIndex>([objectOf(string) length]);
}

CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding, UInt8, Boolean, UInt8* buffer,
                         CFIndex maxBufLen, CFIndex* usedBufLen) {
  @autoreleasepool {
    const char* const utf8 = [objectOf(string) UTF8String];
    *usedBufLen = static_cast<CFIndex>(std::strlen(utf8));
    if (buffer != nullptr)
      std::memcpy(buffer, utf8, static_cast<std::size_t>(std::min(*usedBufLen, maxBufLen)));
    return range.length;
  }
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  const void* const made = [[NSData alloc] initWithBytes:bytes length:static_cast<NSUInteger>(length)];
  return static_cast<CFDataRef>(made);
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
  return static_cast<const UInt8*>([static_cast<NSData*>(objectOf(data)) bytes]);
}

CFIndex CFDataGetLength(CFDataRef data) {
  return static_cast<CFIndex>([static_cast<NSData*>(objectOf(data)) length]);
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
  return [static_cast<NSNumber*>(objectOf(boolean)) boolValue] ? 1 : 0;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* valuePtr) {
  @autoreleasepool {
    if (type == kCFNumberFloat64Type) {
      return owned<CFNumberRef>([NSNumber numberWithDouble:*static_cast<const double*>(valuePtr)]);
    }
    return owned<CFNumberRef>([NSNumber numberWithLongLong:*static_cast<const long long*>(valuePtr)]);
  }
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return isFloat(static_cast<NSNumber*>(objectOf(number))) ? 1 : 0;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* valuePtr) {
  NSNumber* const object = static_cast<NSNumber*>(objectOf(number));
  if (type == kCFNumberFloat64Type) {
    *static_cast<double*>(valuePtr) = [object doubleValue];
  } else {
    *static_cast<long long*>(valuePtr) = [object longLongValue];
  }
  return 1;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime time) {
  const void* const made = [[NSDate alloc] initWithTimeIntervalSinceReferenceDate:time];
  return static_cast<CFDateRef>(made);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
  return [static_cast<NSDate*>(objectOf(date)) timeIntervalSinceReferenceDate];
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks*) {
  const void* const made = [[NSMutableArray alloc] init];
  return static_cast<CFMutableArrayRef>(const_cast<void*>(made));
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
  [static_cast<NSMutableArray*>(objectOf(array)) addObject:objectOf(value)];
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>([static_cast<NSArray*>(objectOf(array)) count]);
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return [static_cast<NSArray*>(objectOf(array)) objectAtIndex:static_cast<NSUInteger>(index)];
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex, const CFDictionaryKeyCallBacks*,
                                                 const CFDictionaryValueCallBacks*) {
  const void* const made = [[NSMutableDictionary alloc] init];
  return static_cast<CFMutableDictionaryRef>(const_cast<void*>(made));
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  [static_cast<NSMutableDictionary*>(objectOf(dictionary)) setObject:objectOf(value) forKey:objectOf(key)];
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  return static_cast<CFIndex>([static_cast<NSDictionary*>(objectOf(dictionary)) count]);
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef reference, const void** keys, const void** values) {
  NSDictionary* const dictionary = static_cast<NSDictionary*>(objectOf(reference));
  for (id key in dictionary) {
    *keys++ = key;
    *values++ = [dictionary objectForKey:key];
  }
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* path, CFIndex length, Boolean) {
  @autoreleasepool {
    NSString* const text = [[[NSString alloc] initWithBytes:path
                                                     length:static_cast<NSUInteger>(length)
                                                   encoding:NSUTF8StringEncoding] autorelease];
    return owned<CFURLRef>([NSURL fileURLWithPath:text]);
  }
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef address, Boolean, UInt8* buffer, CFIndex maxBufLen) {
  @autoreleasepool {
    return [[static_cast<NSURL*>(objectOf(address)) path] getCString:reinterpret_cast<char*>(buffer)
                                                           maxLength:static_cast<NSUInteger>(maxBufLen)
                                                            encoding:NSUTF8StringEncoding]
               ? 1
               : 0;
  }
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  const void* const center = [NSDistributedNotificationCenter defaultCenter];
  return static_cast<CFNotificationCenterRef>(const_cast<void*>(center));
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center, CFStringRef name,
                                                     const void* object, CFDictionaryRef userInfo,
                                                     CFOptionFlags options) {
  @autoreleasepool {
    [static_cast<NSDistributedNotificationCenter*>(objectOf(center))
        postNotificationName:static_cast<NSString*>(objectOf(name))
                      object:static_cast<NSString*>(objectOf(object))
                    userInfo:static_cast<NSDictionary*>(objectOf(userInfo))
          deliverImmediately:(options & kCFNotificationDeliverImmediately) != 0];
  }
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef object, CFPropertyListFormat,
                                   CFOptionFlags, CFErrorRef*) {
  @autoreleasepool {
    return owned<CFDataRef>([NSPropertyListSerialization dataFromPropertyList:objectOf(object)
                                                                       format:NSPropertyListBinaryFormat_v1_0
                                                             errorDescription:nullptr]);
  }
}

/// Nobody has one here.
CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef, CFStringRef) {
  return nullptr;
}

SInt32 CFMessagePortSendRequest(CFMessagePortRef, SInt32, CFDataRef, CFTimeInterval, CFTimeInterval,
                                CFStringRef, CFDataRef*) {
  std::abort();
}

}  // extern "C"
