#include "platform/posix/SystemLogSocket.h"

namespace platform {

const char* const kSystemLogSocket = "/var/run/syslog";

}  // namespace platform
