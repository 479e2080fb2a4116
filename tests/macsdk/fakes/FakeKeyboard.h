#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <vector>

/// Text Input Sources and UCKeyTranslate for tests on other systems. The current input source is a Core
/// Foundation object like any other, so that its release counts (FakeCoreFoundation.h).
namespace fakes {

struct KeyboardState {
  bool hasSource = true;
  std::optional<std::string> layout = "layout";  ///< what stands for the layout's data
  OSStatus status = 0;
  std::u16string characters;  ///< what every key produces
  unsigned char type = 40;
  std::vector<std::string> calls;  ///< of UCKeyTranslate
};

KeyboardState& keyboard();

}  // namespace fakes
