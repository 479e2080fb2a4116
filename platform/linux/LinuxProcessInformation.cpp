#include "platform/linux/LinuxProcessInformation.h"

#include <sys/random.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "platform/linux/ShellAssignments.h"

namespace platform {
namespace {

using foundation::stringWithFormat;

constexpr const char* kSystemVersion = "/System/Library/CoreServices/SystemVersion.plist";
constexpr const char* kRelease = "/etc/os-release";
constexpr std::uint64_t kLargestRelease = 1 << 20;

int argumentCount = 0;
char** argumentStrings = nullptr;

/// The C library calls constructors with main's arguments.
[[gnu::constructor]] void noteArguments(int count, char** strings) {
  argumentCount = count;
  argumentStrings = strings;
}

std::string kernelRelease() {
  utsname names{};
  ::uname(&names);
  return stringWithFormat("%s %s", &names.sysname[0], &names.release[0]);
}

}  // namespace

std::vector<std::string> LinuxProcessInformation::arguments() {
  std::vector<std::string> strings;
  for (int at = 0; at < argumentCount; ++at) {
    // A program may take the arguments that it has dealt with out of main's list.
    if (argumentStrings[at] == nullptr) break;
    strings.emplace_back(argumentStrings[at]);
  }
  return strings;
}

std::string LinuxProcessInformation::processName() {
  return argumentCount == 0 ? "" : foundation::lastPathComponent(*argumentStrings);
}

std::string LinuxProcessInformation::macVersion() {
  const auto bytes = files_.readFile(kSystemVersion, kLargestPropertyList);
  if (!bytes) return {};
  const auto version = propertyLists_.parse(bytes.value());
  if (!version || version.value().stringFor("ProductVersion").empty()) return {};
  return stringWithFormat("Version %@ (Build %@)", version.value().stringFor("ProductVersion"),
                          version.value().stringFor("ProductBuildVersion"));
}

std::string LinuxProcessInformation::distributionName() {
  const auto bytes = files_.readFile(kRelease, kLargestRelease);
  return bytes ? shellAssignment(bytes.value(), "PRETTY_NAME").value_or("") : "";
}

std::string LinuxProcessInformation::operatingSystemVersionString() {
  if (auto version = macVersion(); !version.empty()) return version;
  const std::string distribution = distributionName();
  return distribution.empty() ? kernelRelease() : distribution + " (" + kernelRelease() + ")";
}

int LinuxProcessInformation::processorCount() {
  return static_cast<int>(std::max(::sysconf(_SC_NPROCESSORS_ONLN), 1L));
}

std::uint64_t LinuxProcessInformation::physicalMemory() {
  return static_cast<std::uint64_t>(std::max(::sysconf(_SC_PHYS_PAGES), 0L)) *
         static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::string LinuxProcessInformation::globallyUniqueString() {
  std::array<unsigned char, 16> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    if (at == 4 || at == 6 || at == 8 || at == 10) text += '-';
    text += stringWithFormat("%02X", static_cast<unsigned>(bytes.at(at)));
  }
  return text;
}

}  // namespace platform
