#pragma once

#include "platform/KeyboardLayout.h"
#include "platform/MainThread.h"

namespace platform {

/// The current keyboard input source's layout (Text Input Source Services), translated by UCKeyTranslate for
/// this computer's kind of keyboard. The system wants the first to be asked on the main thread, and so it is,
/// whichever thread calls. Input methods that have no layout of their own, as those of Japanese, answer
/// nothing.
class MacKeyboardLayout : public KeyboardLayout {
 public:
  explicit MacKeyboardLayout(MainThread& mainThread) : mainThread_(mainThread) {}

  std::optional<KeyTranslation> translate(std::uint16_t keyCode, std::uint32_t modifierState) override;
  /// A Mac's scan codes are its key codes.
  std::optional<std::uint16_t> keyCodeForScanCode(std::uint32_t scanCode) override;

 private:
  MainThread& mainThread_;
};

}  // namespace platform
