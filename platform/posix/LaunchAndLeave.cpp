#include "platform/posix/LaunchAndLeave.h"

#include "platform/Platform.h"
#include "platform/foundation/Exception.h"

namespace platform {

bool launchAndLeave(const std::string& program, const std::vector<std::string>& arguments) {
  try {
    current()
        .subprocesses
        .create({.launchPath = program,
                 .arguments = arguments,
                 .standardInput = Stream::nullDevice,
                 .standardOutput = Stream::nullDevice,
                 .standardError = Stream::nullDevice})
        ->launch();
    return true;
  } catch (const foundation::Exception& exception) {
    NSLog("%@", exception.reason());
    return false;
  }
}

}  // namespace platform
