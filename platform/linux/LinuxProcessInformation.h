#pragma once

#include "platform/Files.h"
#include "platform/ProcessInformation.h"
#include "platform/PropertyLists.h"

namespace platform {

/// The arguments as the kernel handed them to the program, also where /proc is not mounted; sysconf(3);
/// unique strings are random UUIDs (RFC 4122, version 4) from getrandom(2).
///
/// The operating system's version is the Mac volume's own where the root folder is one
/// (/System/Library/CoreServices/SystemVersion.plist), else the distribution's name and the kernel's release:
/// "Debian GNU/Linux 12 (bookworm) (Linux 6.1.0-13-amd64)".
class LinuxProcessInformation : public ProcessInformation {
 public:
  LinuxProcessInformation(FileQueries& files, PropertyLists& propertyLists)
      : files_(files), propertyLists_(propertyLists) {}

  std::vector<std::string> arguments() override;
  std::string processName() override;
  std::string operatingSystemVersionString() override;
  int processorCount() override;
  std::uint64_t physicalMemory() override;
  std::string globallyUniqueString() override;

 private:
  [[nodiscard]] std::string macVersion();
  [[nodiscard]] std::string distributionName();

  FileQueries& files_;
  PropertyLists& propertyLists_;
};

}  // namespace platform
