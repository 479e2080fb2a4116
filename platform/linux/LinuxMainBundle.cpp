#include "platform/linux/LinuxMainBundle.h"

#include <unistd.h>

#include <climits>

#include "platform/foundation/Paths.h"

namespace platform {
namespace {

using foundation::appendingPathComponent;
using foundation::deletingLastPathComponent;
using foundation::lastPathComponent;

std::string runningExecutable() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return path;
}

}  // namespace

std::string LinuxMainBundle::executablePath() {
  return executable_ ? *executable_ : runningExecutable();
}

std::string LinuxMainBundle::path() {
  const std::string folder = deletingLastPathComponent(executablePath());
  const std::string contents = deletingLastPathComponent(folder);
  const bool isInBundle = lastPathComponent(folder) == "MacOS" && lastPathComponent(contents) == "Contents";
  return isInBundle ? deletingLastPathComponent(contents) : folder;
}

foundation::PropertyList LinuxMainBundle::infoDictionary() {
  const auto bytes =
      files_.readFile(appendingPathComponent(path(), "Contents/Info.plist"), kLargestPropertyList);
  if (!bytes) return {};
  auto info = propertyLists_.parse(bytes.value());
  const bool isDictionary = info && info.value().as<foundation::PropertyList::Dictionary>() != nullptr;
  return isDictionary ? std::move(info).value() : foundation::PropertyList();
}

std::optional<std::string> LinuxMainBundle::pathForIdentifier(const std::string& identifier) {
  const foundation::PropertyList info = infoDictionary();
  const foundation::PropertyList* const own = info.find("CFBundleIdentifier");
  if (own == nullptr || *own != foundation::PropertyList(identifier)) return std::nullopt;
  return path();
}

std::optional<std::string> LinuxMainBundle::pathForResource(const std::string& name,
                                                            const std::string& type) {
  const std::string file = type.empty() ? name : name + "." + type;
  std::string resource = appendingPathComponent(path(), "Contents/Resources/" + file);
  if (!files_.exists(resource)) return std::nullopt;
  return resource;
}

}  // namespace platform
