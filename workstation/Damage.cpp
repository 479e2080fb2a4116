#include "workstation/Damage.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <system_error>

#include "workstation/Layout.h"
#include "workstation/PropertyListFile.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;

constexpr std::uintmax_t hugeSize = 65ULL << 20;
constexpr uid_t bob = 502;
constexpr gid_t staff = 20;

/// What a damage is done to: the volume, the path inside and the place outside.
struct Target {
  fs::path volume;
  std::string inside;
  fs::path place;
};

using Effect = std::function<void(const Target&)>;

[[noreturn]] void fail(const fs::path& path) {
  throw std::system_error(errno, std::generic_category(), path.string());
}

void takeBits(const fs::path& path, mode_t bits) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) fail(path);
  if (::chmod(path.c_str(), status.st_mode & ~bits & 07777U) != 0) fail(path);
}

Effect withoutBits(mode_t bits) {
  return [bits](const Target& target) { takeBits(target.place, bits); };
}

void giveToBob(const Target& target) {
  const auto give = [](const fs::path& path) {
    if (::lchown(path.c_str(), bob, staff) != 0) fail(path);
  };
  give(target.place);
  if (!fs::is_directory(fs::symlink_status(target.place))) return;
  for (const auto& entry : fs::recursive_directory_iterator(target.place)) give(entry.path());
}

void lock(const Target& target) {
  const int descriptor = ::open(target.place.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) fail(target.place);
  int flags = 0;
  const bool done = ::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 &&
                    (flags |= FS_IMMUTABLE_FL, ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0);
  const int error = errno;
  ::close(descriptor);
  errno = error;
  if (!done) fail(target.place);
}

/// Owner and mode of what a damaged file replaces stay those of the file.
void replaceContents(const Target& target, const std::string& bytes) {
  writeFile(target.place, bytes);
}

void truncateToHalf(const Target& target) {
  fs::resize_file(target.place, fs::file_size(target.place) / 2);
}

void fillWithGarbage(const Target& target) {
  std::string bytes(std::max<std::uintmax_t>(fs::file_size(target.place), 64), '\0');
  unsigned next = 1;
  for (auto& byte : bytes) byte = static_cast<char>((next = next * 1103515245U + 12345U) >> 16U);
  replaceContents(target, bytes);
}

void removeIfThere(const fs::path& place) {
  fs::remove_all(place);
}

void putFifo(const Target& target) {
  removeIfThere(target.place);
  if (::mkfifo(target.place.c_str(), 0644) != 0) fail(target.place);
}

void putFolder(const Target& target) {
  removeIfThere(target.place);
  fs::create_directory(target.place);
}

void putSocket(const Target& target) {
  removeIfThere(target.place);
  if (::mknod(target.place.c_str(), S_IFSOCK | 0644, 0) != 0) fail(target.place);
}

void putLinkLoop(const Target& target) {
  auto partner = target.place;
  partner += ".link";
  removeIfThere(target.place);
  fs::create_symlink(partner.filename(), target.place);
  fs::create_symlink(target.place.filename(), partner);
}

void putDanglingLink(const Target& target) {
  removeIfThere(target.place);
  fs::create_symlink("nowhere", target.place);
}

void putWrongType(const Target& target) {
  writePropertyList(target.place, PropertyList::Array{1, 2, 3}, Encoding::xml);
}

void putWrongValues(const Target& target) {
  const PropertyList::Dictionary wrong{
      {"CFBundleShortVersionString", PropertyList::Array{3, 5}},
      {"CFBundleVersion", PropertyList::Dictionary{{"major", 3}}},
      {"CFBundleIdentifier", 7},
      {"jobcontroller:com.apple.qmaster.cluster.admin", PropertyList::Dictionary{{"UserPrefs", "none"}}}};
  writePropertyList(target.place, wrong, Encoding::binary);
}

void disable(const Target& target) {
  writeFile(target.place / ".disabled", "");
}

/// The executable that a damage names directly, or that of the application which it names.
std::string executableInside(const Target& target) {
  const fs::path inside = target.inside;
  if (inside.extension() != ".app") return target.inside;
  return (inside / "Contents/MacOS" / inside.stem()).string();
}

Effect behaving(const std::string& manner) {
  return [manner](const Target& target) {
    const auto file = target.volume / std::string(mannersFile).substr(1);
    std::ofstream(file, std::ios::app) << executableInside(target) << '\t' << manner << '\n';
  };
}

Effect withoutValue(const std::string& key) {
  return [key](const Target& target) {
    removeIfThere(target.volume / std::string(valuesFolder).substr(1) / key);
  };
}

struct Entry {
  DamageName name;
  Effect effect;
};

const std::vector<Entry>& entries() {
  static const std::vector<Entry> all{
      {{"missing", true, "takes it away"}, [](const Target& target) { removeIfThere(target.place); }},
      {{"unreadable", true, "nobody may read it"}, withoutBits(0444)},
      {{"unwritable", true, "nobody may write to it"}, withoutBits(0222)},
      {{"unopenable", true, "nobody may open the folder"}, withoutBits(0111)},
      {{"no-access", true, "nobody may read, write or open it"}, withoutBits(0777)},
      {{"wrong-owner", true, "it and all in it belongs to bob"}, giveToBob},
      {{"locked", true, "cannot be changed, not even by root"}, lock},
      {{"empty", true, "a file of no bytes"}, [](const Target& target) { replaceContents(target, ""); }},
      {{"truncated", true, "the first half of the file"}, truncateToHalf},
      {{"garbage", true, "bytes that mean nothing"}, fillWithGarbage},
      {{"huge", true, "grown to 65 MiB"},
       [](const Target& target) { fs::resize_file(target.place, hugeSize); }},
      {{"fifo", true, "a FIFO in its place"}, putFifo},
      {{"folder", true, "a folder in its place"}, putFolder},
      {{"socket", true, "a socket in its place"}, putSocket},
      {{"link-loop", true, "symbolic links that point to each other"}, putLinkLoop},
      {{"dangling-link", true, "a symbolic link to nothing"}, putDanglingLink},
      {{"wrong-type", true, "a property list that is a list of numbers"}, putWrongType},
      {{"wrong-values", true, "a property list with values of the wrong type"}, putWrongValues},
      {{"disabled", true, "a .disabled file in the startup item's folder"}, disable},
      {{"ignores-quit", true, "the application ignores the request to quit"}, behaving("ignores")},
      {{"slow-quit", true, "the application takes three seconds to quit"}, behaving("3000")},
      {{"no-computer-name", false, "the computer has no name"}, withoutValue("ComputerName")},
      {{"no-local-host-name", false, "the computer has no local host name"}, withoutValue("LocalHostName")}};
  return all;
}

const Entry* find(std::string_view name) {
  const auto found = std::find_if(entries().begin(), entries().end(),
                                  [&](const Entry& entry) { return entry.name.name == name; });
  return found == entries().end() ? nullptr : &*found;
}

}  // namespace

const std::vector<DamageName>& damageNames() {
  static const std::vector<DamageName> names = [] {
    std::vector<DamageName> all;
    for (const auto& entry : entries()) all.push_back(entry.name);
    return all;
  }();
  return names;
}

std::optional<Damage> parseDamage(std::string_view text) {
  const auto colon = text.find(':');
  Damage damage{std::string(text.substr(0, colon)),
                colon == std::string_view::npos ? std::string() : std::string(text.substr(colon + 1))};
  const auto* entry = find(damage.name);
  if (entry == nullptr || entry->name.needsPath != damage.path.starts_with('/')) return std::nullopt;
  if (!entry->name.needsPath && !damage.path.empty()) return std::nullopt;
  return damage;
}

void applyDamage(const fs::path& volume, const Damage& damage) {
  const auto* entry = find(damage.name);
  if (entry == nullptr || entry->name.needsPath != damage.path.starts_with('/')) {
    throw std::invalid_argument("no such damage: " + damage.name + ':' + damage.path);
  }
  const auto inside = damage.path.empty() ? std::string() : damage.path.substr(1);
  entry->effect({volume, damage.path, volume / inside});
}

}  // namespace workstation
