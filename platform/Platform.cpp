#include "platform/Platform.h"

#include <atomic>
#include <cerrno>

namespace platform {
namespace {

std::atomic<Platform*>& installed() {
  static std::atomic<Platform*> platform = nullptr;
  return platform;
}

}  // namespace

Platform& current() {
  Platform* const platform = installed();
  return platform != nullptr ? *platform : native();
}

PlatformScope::PlatformScope(Platform& replacement) : previous_(installed().exchange(&replacement)) {}

PlatformScope::~PlatformScope() {
  installed() = previous_;
}

void logToSystemConsole(const std::string& message) {
  current().systemConsole.write(message);
}

foundation::Result<foundation::PropertyList> readPropertyList(const std::string& path) {
  auto bytes = current().fileQueries.readFile(path, kLargestPropertyList);
  if (!bytes) return bytes.error();
  return current().propertyLists.parse(bytes.value());
}

foundation::Result<foundation::PropertyList> readDictionary(const std::string& path) {
  auto value = readPropertyList(path);
  if (value && value.value().as<foundation::PropertyList::Dictionary>() == nullptr) {
    return foundation::systemError(EINVAL, path);
  }
  return value;
}

foundation::Result<void> writePropertyList(const std::string& path, const foundation::PropertyList& value,
                                           PropertyListFormat format) {
  auto bytes = current().propertyLists.serialize(value, format);
  if (!bytes) return bytes.error();
  return current().fileChanges.writeAtomically(path, bytes.value());
}

}  // namespace platform
