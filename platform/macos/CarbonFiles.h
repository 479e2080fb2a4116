#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>

#include <cstdint>
#include <type_traits>

/// Functions on files that Carbon has (Apple's File Manager and Alias Manager References), which may be gone:
/// deprecated since 10.8, so that a system's headers may refuse or lack them. They are declared here for
/// their types, defined by nobody, and looked up by their names when they are needed.
namespace platform::carbon {

using OSErr = std::int16_t;
using OSStatus = std::int32_t;
using OptionBits = std::uint32_t;
using Size = long;
using Handle = char**;

/// A reference to an item, as the system made it.
struct FSRef {
  std::uint8_t hidden[80];
};

struct OpaqueFileOperation;
/// An object of Core Foundation's.
using FSFileOperationRef = OpaqueFileOperation*;
using FSFileOperationStage = std::uint32_t;
enum { kFSFileOperationDefaultOptions = 0 };

struct FSFileOperationClientContext {
  CFIndex version;
  void* info;
  std::add_pointer_t<const void*(const void*)> retain;
  std::add_pointer_t<void(const void*)> release;
  std::add_pointer_t<CFStringRef(const void*)> copyDescription;
};
using FSPathFileOperationStatusProcPtr =
    std::add_pointer_t<void(FSFileOperationRef, const char* currentItem, FSFileOperationStage stage,
                            OSStatus error, CFDictionaryRef statusDictionary, void* info)>;

Boolean CFURLGetFSRef(CFURLRef, FSRef*);
OSErr FSNewAliasMinimal(const FSRef*, Handle*);
Size GetHandleSize(Handle);
void DisposeHandle(Handle);

FSFileOperationRef FSFileOperationCreate(CFAllocatorRef);
OSStatus FSFileOperationScheduleWithRunLoop(FSFileOperationRef, CFRunLoopRef, CFStringRef mode);
OSStatus FSFileOperationUnscheduleFromRunLoop(FSFileOperationRef, CFRunLoopRef, CFStringRef mode);
OSStatus FSPathCopyObjectAsync(FSFileOperationRef, const char* sourcePath, const char* destDirPath,
                               CFStringRef destName, OptionBits, FSPathFileOperationStatusProcPtr,
                               CFTimeInterval statusChangeInterval, FSFileOperationClientContext*);
OSStatus FSFileOperationCancel(FSFileOperationRef);

/// The function or variable of that name and type; nullptr on a system without it.
template <typename Type>
Type* lookedUp(const char* name) {
  return {reinterpret_cast<Type*>(::dlsym(RTLD_DEFAULT, name))};
}

}  // namespace platform::carbon
