#include <stdexcept>

#include "platform/Platform.h"

namespace platform {

/// Unit tests install a platform of their own; one that forgets to must not touch the real system.
Platform& native() {
  throw std::logic_error("this test has no platform installed");
}

}  // namespace platform
