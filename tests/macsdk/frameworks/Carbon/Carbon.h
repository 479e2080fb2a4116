// The part of Text Input Source Services and of the Unicode Utilities that the Mac's backend uses, declared
// after Apple's public reference documentation.
#pragma once

#include <CoreServices/CoreServices.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef UInt32 OptionBits;
typedef unsigned long UniCharCount;
typedef struct __TISInputSource* TISInputSourceRef;
typedef struct UCKeyboardLayout UCKeyboardLayout;

extern const CFStringRef kTISPropertyUnicodeKeyLayoutData;
TISInputSourceRef TISCopyCurrentKeyboardInputSource(void);
void* TISGetInputSourceProperty(TISInputSourceRef, CFStringRef propertyKey);

enum { kUCKeyActionDown = 0 };
OSStatus UCKeyTranslate(const UCKeyboardLayout*, UInt16 virtualKeyCode, UInt16 keyAction,
                        UInt32 modifierKeyState, UInt32 keyboardType, OptionBits keyTranslateOptions,
                        UInt32* deadKeyState, UniCharCount maxStringLength, UniCharCount* actualStringLength,
                        UniChar* unicodeString);
UInt8 LMGetKbdType(void);

#ifdef __cplusplus
}
#endif
