// The part of the Apple Event Manager that the Mac's backend uses, declared after Apple's public reference
// documentation.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef SInt16 OSErr;
typedef long Size;
typedef FourCharCode DescType;
typedef FourCharCode AEEventClass;
typedef FourCharCode AEEventID;
typedef FourCharCode AEKeyword;
typedef SInt16 AEReturnID;
typedef SInt32 AETransactionID;
typedef SInt32 AESendMode;
typedef struct OpaqueAEDataStorageType* AEDataStorageType;
typedef AEDataStorageType* AEDataStorage;

#pragma pack(push, 2)
typedef struct AEDesc {
  DescType descriptorType;
  AEDataStorage dataHandle;
} AEDesc;
#pragma pack(pop)
typedef AEDesc AEAddressDesc;
typedef AEDesc AppleEvent;

enum { kAutoGenerateReturnID = -1, kAnyTransactionID = 0 };
enum { kAEDefaultTimeout = -1, kNoTimeOut = -2 };
enum { kAENoReply = 0x00000001 };

OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result);
OSErr AEDisposeDesc(AEDesc* theAEDesc);
OSErr AECreateAppleEvent(AEEventClass, AEEventID, const AEAddressDesc* target, AEReturnID, AETransactionID,
                         AppleEvent* result);
OSErr AEPutParamPtr(AppleEvent*, AEKeyword, DescType typeCode, const void* dataPtr, Size dataSize);
OSStatus AESendMessage(const AppleEvent*, AppleEvent* reply, AESendMode, long timeOutInTicks);

// LSInfo.h
OSStatus LSRegisterURL(CFURLRef inURL, Boolean inUpdate);

#ifdef __cplusplus
}
#endif
