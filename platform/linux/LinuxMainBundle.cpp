#include "platform/linux/LinuxMainBundle.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <vector>

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

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string messagesLocale() {
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (std::string locale = environment(name); !locale.empty()) return locale;
  }
  return "";
}

/// What the environment says of the language for messages, best first, as a bundle names languages ("de_CH",
/// "de"), then English, which the bundle is written in: setlocale(3), and gettext(3) of LANGUAGE.
std::vector<std::string> preferredLanguages() {
  std::vector<std::string> languages;
  const auto add = [&](std::string locale) {
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX" || locale.find('/') != std::string::npos) return;
    languages.push_back(locale);
    languages.push_back(locale.substr(0, locale.find('_')));
  };
  const std::string locale = messagesLocale();
  if (!locale.empty() && locale != "C" && locale != "POSIX") {
    const std::string list = environment("LANGUAGE");
    for (std::size_t at = 0; at < list.size(); at = list.find(':', at) + 1) {
      add(list.substr(at, list.find(':', at) - at));
      if (list.find(':', at) == std::string::npos) break;
    }
  }
  add(locale);
  languages.emplace_back("en");
  return languages;
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

std::string LinuxMainBundle::localizedString(const std::string& key) {
  for (const std::string& language : preferredLanguages()) {
    const std::string strings = "Contents/Resources/" + language + ".lproj/Localizable.strings";
    const auto bytes = files_.readFile(appendingPathComponent(path(), strings), kLargestPropertyList);
    if (!bytes) continue;
    const auto table = propertyLists_.parse(bytes.value());
    const auto* const text = table ? table.value().find(key) : nullptr;
    return text != nullptr && text->as<std::string>() != nullptr ? *text->as<std::string>() : key;
  }
  return key;
}

}  // namespace platform
