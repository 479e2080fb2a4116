#include "platform/linux/LinuxPreferences.h"

#include <cctype>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"

namespace platform {
namespace {

using foundation::PropertyList;
using foundation::Result;

constexpr std::size_t kMachineIdLength = 32;
constexpr std::uint64_t kLongestMachineIdFile = 4096;

std::string inCapitals(std::string text) {
  for (char& letter : text) letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  return text;
}

/// Where the computer has no number of its own, "localhost" stands for it.
std::string computerIdentifier() {
  const auto file = current().fileQueries.readFile("/etc/machine-id", kLongestMachineIdFile);
  std::string id = file ? foundation::trimmed(file.value()) : "";
  if (id.size() != kMachineIdLength || id.find_first_not_of("0123456789abcdef") != std::string::npos) {
    return "localhost";
  }
  for (const std::size_t at : {20UL, 16UL, 12UL, 8UL}) id.insert(at, "-");
  return inCapitals(std::move(id));
}

std::optional<PropertyList> valueInFile(const std::string& path, const std::string& key) {
  const auto dictionary = readDictionary(path);
  const PropertyList* const found = dictionary ? dictionary.value().find(key) : nullptr;
  return found == nullptr ? std::nullopt : std::optional(*found);
}

std::optional<PropertyList> valueIn(const PropertyList& dictionary, const std::string& key) {
  const PropertyList* const found = dictionary.find(key);
  return found == nullptr ? std::nullopt : std::optional(*found);
}

bool isEmpty(const PropertyList& dictionary) {
  const auto* const entries = dictionary.as<PropertyList::Dictionary>();
  return entries == nullptr || entries->empty();
}

struct StoredFile {
  PropertyList content;
  PropertyListFormat format = PropertyListFormat::binary;
  bool isUnreadable = false;  ///< holds something, and no dictionary
};

/// What is in the file now; an error when it is there and cannot be read, or holds more than is read. EISDIR
/// for a folder.
Result<StoredFile> storedFile(const std::string& path) {
  if (current().fileQueries.isDirectory(path)) return foundation::systemError(EISDIR, path);
  const auto bytes = current().fileQueries.readFile(path, kLargestPropertyList);
  if (!bytes) return bytes.error().code == ENOENT ? Result<StoredFile>(StoredFile{}) : bytes.error();
  if (bytes.value().empty()) return StoredFile();
  auto content = current().propertyLists.parse(bytes.value());
  if (!content && content.error().code != EINVAL) return content.error();
  StoredFile file;
  file.isUnreadable = !content || content.value().as<PropertyList::Dictionary>() == nullptr;
  if (file.isUnreadable) return file;
  file.content = std::move(content).value();
  file.format = bytes.value().starts_with("bplist") ? PropertyListFormat::binary : PropertyListFormat::xml;
  return file;
}

Result<void> keepAside(const std::string& path) {
  const auto aside = keepUnreadableAside(path);
  if (!aside) return aside.error();
  NSLog("The preferences in %@ can't be read. The file is kept as %@.", path, aside.value());
  return {};
}

Result<void> store(const std::string& path, const PropertyList& changes) {
  const auto seen = current().fileQueries.state(path);
  auto file = storedFile(path);
  if (!file) return file.error();
  PropertyList& content = file.value().content;
  for (const auto& [key, value] : *changes.as<PropertyList::Dictionary>()) content.set(key, value);
  auto made = current().fileChanges.createDirectory(foundation::deletingLastPathComponent(path));
  if (made && file.value().isUnreadable) {
    // Another program that has met it has replaced it, and what lies there now may be a sound list.
    if (current().fileQueries.state(path) != seen) return foundation::systemError(EAGAIN, path);
    made = keepAside(path);
  }
  return made ? writePropertyList(path, content, file.value().format) : made;
}

}  // namespace

LinuxPreferences::LinuxPreferences(std::string domain) : domain_(std::move(domain)) {}

std::optional<PropertyList> LinuxPreferences::value(const std::string& key) {
  const std::scoped_lock lock(mutex_);
  if (auto value = valueInFile(usersFileOnThisComputer(), key)) return value;
  if (auto value = valueIn(usersChanges_, key)) return value;
  if (auto value = valueInFile(usersFile(), key)) return value;
  if (auto value = valueInFile(everybodysFileOnThisComputer(), key)) return value;
  if (auto value = valueInFile(everybodysFile(), key)) return value;
  return registered_.value(key);
}

void LinuxPreferences::setValue(const std::string& key, const PropertyList& value) {
  const std::scoped_lock lock(mutex_);
  usersChanges_.set(key, value);
}

bool LinuxPreferences::synchronize() {
  const std::scoped_lock lock(mutex_);
  if (isEmpty(usersChanges_)) return true;
  if (!store(usersFile(), usersChanges_)) return false;
  usersChanges_ = PropertyList();
  return true;
}

Result<void> LinuxPreferences::storeForAnyUserOnCurrentHost(const std::string& key,
                                                            const PropertyList& value) {
  const std::scoped_lock lock(mutex_);
  return store(everybodysFileOnThisComputer(), PropertyList::Dictionary{{key, value}});
}

std::string LinuxPreferences::usersFolder() const {
  return foundation::appendingPathComponent(current().usersAndFolders.homeDirectory(), "Library/Preferences");
}

std::string LinuxPreferences::usersFile() const {
  return usersFolder() + "/" + domain_ + ".plist";
}

std::string LinuxPreferences::usersFileOnThisComputer() const {
  return usersFolder() + "/ByHost/" + domain_ + "." + computerIdentifier() + ".plist";
}

std::string LinuxPreferences::everybodysFileOnThisComputer() const {
  return "/Library/Preferences/" + domain_ + ".plist";
}

std::string LinuxPreferences::everybodysFile() const {
  return "/Network/Library/Preferences/" + domain_ + ".plist";
}

}  // namespace platform
