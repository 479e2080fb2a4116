#include "platform/macos/MacKeyboardLayout.h"

#include <Carbon/Carbon.h>

#include <array>

#include "platform/macos/CoreFoundationReference.h"
#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

constexpr std::uint32_t kLastKeyCode = 0x7F;
constexpr std::size_t kMostCharacters = 255;

KeyTranslation translated(const UCKeyboardLayout* layout, std::uint16_t keyCode, std::uint32_t modifiers) {
  UInt32 deadKeys = 0;
  UniCharCount length = 0;
  std::array<UniChar, kMostCharacters> characters{};
  const ::OSStatus status = UCKeyTranslate(layout, keyCode, kUCKeyActionDown, modifiers, LMGetKbdType(), 0,
                                           &deadKeys, characters.size(), &length, characters.data());
  if (status != noErr || length == 0) return {status, ""};
  const CoreFoundationString text(
      CFStringCreateWithCharacters(kCFAllocatorDefault, characters.data(), static_cast<CFIndex>(length)));
  return {status, textOf(text.get())};
}

std::optional<KeyTranslation> translatedNow(std::uint16_t keyCode, std::uint32_t modifiers) {
  const CoreFoundationReference<TISInputSourceRef> source(TISCopyCurrentKeyboardInputSource());
  if (!source) return std::nullopt;
  // The source's own.
  const auto* const data =
      static_cast<CFDataRef>(TISGetInputSourceProperty(source.get(), kTISPropertyUnicodeKeyLayoutData));
  if (data == nullptr) return std::nullopt;
  if (keyCode > kLastKeyCode) return KeyTranslation{paramErr, ""};
  return translated(reinterpret_cast<const UCKeyboardLayout*>(CFDataGetBytePtr(data)), keyCode, modifiers);
}

}  // namespace

std::optional<KeyTranslation> MacKeyboardLayout::translate(std::uint16_t keyCode,
                                                           std::uint32_t modifierState) {
  std::optional<KeyTranslation> translation;
  mainThread_.perform([&] { translation = translatedNow(keyCode, modifierState); }, Wait::yes);
  return translation;
}

std::optional<std::uint16_t> MacKeyboardLayout::keyCodeForScanCode(std::uint32_t scanCode) {
  return scanCode <= kLastKeyCode ? std::optional(static_cast<std::uint16_t>(scanCode)) : std::nullopt;
}

}  // namespace platform
