#include "platform/Platform.h"

#include <atomic>
#include <cerrno>

#include "platform/foundation/Paths.h"

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

std::string expandingTildeInPath(const std::string& path) {
  if (!path.starts_with('~')) return path;
  auto& users = current().usersAndFolders;
  const std::string name = path.substr(1, path.find('/') - 1);
  const auto home = name.empty() ? users.homeDirectory() : users.homeDirectoryForUser(name);
  return home ? foundation::appendingPathComponent(*home, path.substr(1 + name.size())) : path;
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

foundation::Result<std::string> keepUnreadableAside(const std::string& path) {
  const std::string date = current().clock.now().formattedLocally("%Y-%m-%d %H.%M.%S");
  const std::string name = foundation::deletingPathExtension(path) + " (unreadable " + date;
  for (int number = 1;; ++number) {
    std::string aside = name + (number == 1 ? "" : " " + std::to_string(number)) + ").plist";
    const auto copied = current().fileChanges.copy(path, aside);
    if (copied) return aside;
    if (copied.error().code != EEXIST) return copied.error();
  }
}

foundation::Result<void> writePropertyList(const std::string& path, const foundation::PropertyList& value,
                                           PropertyListFormat format) {
  auto bytes = current().propertyLists.serialize(value, format);
  if (!bytes) return bytes.error();
  if (bytes.value().size() > kLargestPropertyList) return foundation::systemError(EFBIG, path);
  return current().fileChanges.writeAtomically(path, bytes.value());
}

}  // namespace platform
