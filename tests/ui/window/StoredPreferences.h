#pragma once

#include <string>
#include <utility>

#include "platform/foundation/PropertyList.h"
#include "platform/linux/LinuxPropertyLists.h"

namespace window {

/// What a preferences file says, given its bytes, in whatever format; null where it is none.
inline foundation::PropertyList preferencesIn(const std::string& bytes) {
  auto value = platform::LinuxPropertyLists().parse(bytes);
  return value ? std::move(value).value() : foundation::PropertyList();
}

}  // namespace window
