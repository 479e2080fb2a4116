#pragma once

#include "platform/ProcessInformation.h"

namespace platform {

/// The process and the computer by crt_externs(3), sysctl(3) and Core Foundation.
class MacProcessInformation : public ProcessInformation {
 public:
  std::vector<std::string> arguments() override;
  std::string processName() override;
  std::string operatingSystemVersionString() override;
  int processorCount() override;
  std::uint64_t physicalMemory() override;
  std::string globallyUniqueString() override;
};

}  // namespace platform
