#pragma once

#include <CoreFoundation/CoreFoundation.h>

namespace gnustep {

/// Foundation's object for it, for good.
[[nodiscard]] CFBooleanRef booleanReference(bool flag);

}  // namespace gnustep
