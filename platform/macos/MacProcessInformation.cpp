#include "platform/macos/MacProcessInformation.h"

#include <crt_externs.h>
#include <sys/sysctl.h>

#include <algorithm>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

/// The text of a name; "" where the system does not know it.
std::string systemText(const char* name) {
  std::size_t size = 0;
  if (::sysctlbyname(name, nullptr, &size, nullptr, 0) != 0) return {};
  std::string text(size, '\0');
  if (::sysctlbyname(name, text.data(), &size, nullptr, 0) != 0) return {};
  text.resize(std::min(size, text.find('\0')));
  return text;
}

/// The number of a name; 0 where the system does not know it.
template <typename Number>
Number systemNumber(const char* name) {
  Number number = 0;
  std::size_t size = sizeof(number);
  return ::sysctlbyname(name, &number, &size, nullptr, 0) == 0 && size == sizeof(number) ? number : 0;
}

}  // namespace

std::vector<std::string> MacProcessInformation::arguments() {
  char* const* const strings = *_NSGetArgv();
  std::vector<std::string> texts;
  for (int at = 0; at < *_NSGetArgc() && strings[at] != nullptr; ++at) texts.emplace_back(strings[at]);
  return texts;
}

std::string MacProcessInformation::processName() {
  const auto texts = arguments();
  return texts.empty() ? "" : foundation::lastPathComponent(texts.front());
}

std::string MacProcessInformation::operatingSystemVersionString() {
  return foundation::stringWithFormat("Version %@ (Build %@)", systemText("kern.osproductversion"),
                                      systemText("kern.osversion"));
}

int MacProcessInformation::processorCount() {
  return std::max(systemNumber<int>("hw.ncpu"), 1);
}

std::uint64_t MacProcessInformation::physicalMemory() {
  return systemNumber<std::uint64_t>("hw.memsize");
}

std::string MacProcessInformation::globallyUniqueString() {
  const CoreFoundationReference<CFUUIDRef> unique(CFUUIDCreate(kCFAllocatorDefault));
  if (!unique) return {};
  return textOf(CoreFoundationString(CFUUIDCreateString(kCFAllocatorDefault, unique.get())).get());
}

}  // namespace platform
