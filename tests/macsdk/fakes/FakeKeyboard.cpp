#include "tests/macsdk/fakes/FakeKeyboard.h"

#include <Carbon/Carbon.h>

#include <algorithm>

#include "platform/foundation/Text.h"

namespace fakes {

KeyboardState& keyboard() {
  static KeyboardState only;
  return only;
}

}  // namespace fakes

extern "C" {

const CFStringRef kTISPropertyUnicodeKeyLayoutData = kCFPreferencesAnyHost;  // any string that always lives

/// A list that owns the layout's data, if there are any.
TISInputSourceRef TISCopyCurrentKeyboardInputSource() {
  const fakes::KeyboardState& keyboard = fakes::keyboard();
  if (!keyboard.hasSource) return nullptr;
  auto* const source = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
  if (source == nullptr || !keyboard.layout) return reinterpret_cast<TISInputSourceRef>(source);
  const auto* const data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(keyboard.layout->data()),
                                        static_cast<CFIndex>(keyboard.layout->size()));
  if (data == nullptr) return reinterpret_cast<TISInputSourceRef>(source);
  CFArrayAppendValue(source, data);
  CFRelease(data);
  return reinterpret_cast<TISInputSourceRef>(source);
}

void* TISGetInputSourceProperty(TISInputSourceRef source, CFStringRef key) {
  auto* const list = reinterpret_cast<CFArrayRef>(source);
  if (key != kTISPropertyUnicodeKeyLayoutData || CFArrayGetCount(list) == 0) return nullptr;
  return const_cast<void*>(CFArrayGetValueAtIndex(list, 0));
}

OSStatus UCKeyTranslate(const UCKeyboardLayout* layout, UInt16 key, UInt16 action, UInt32 modifiers,
                        UInt32 type, OptionBits options, UInt32* deadKeys, UniCharCount room,
                        UniCharCount* length, UniChar* characters) {
  fakes::KeyboardState& keyboard = fakes::keyboard();
  const std::string text(reinterpret_cast<const char*>(layout), keyboard.layout->size());
  keyboard.calls.push_back(
      foundation::stringWithFormat("%@ key %d action %d modifiers %d type %d options %d dead %d room %d",
                                   text, int{key}, int{action}, modifiers, type, options, *deadKeys, room));
  *length = std::min<UniCharCount>(room, keyboard.characters.size());
  std::copy_n(keyboard.characters.begin(), *length, characters);
  return keyboard.status;
}

UInt8 LMGetKbdType() {
  return fakes::keyboard().type;
}

}  // extern "C"
