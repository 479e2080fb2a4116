#include "platform/posix/SystemLogSocket.h"

namespace platform {

const char* const kSystemLogSocket = "/dev/log";

}  // namespace platform
