#include "helpers/SpoolPlace.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <vector>

#include "helpers/TrashCan.h"
#include "platform/foundation/Paths.h"
#include "platform/posix/AccessLists.h"

namespace helpers {
namespace {

constexpr std::size_t kLargestFile = 1UL << 20;
constexpr const char* kServicesFile = "Library/Application Support/Apple Qmaster/qmasterservices.plist";

using Way = std::vector<std::string>;

bool isBelow(const Way& way, const std::vector<std::string_view>& place) {
  return way.size() > place.size() && std::equal(place.begin(), place.end(), way.begin());
}

/// Nobody but root can lead a path elsewhere that goes by one of these.
bool isBelowSystemsPlace(const Way& way) {
  return isBelow(way, {"/", "var", "spool"}) || isBelow(way, {"/", "private", "var", "spool"}) ||
         isBelow(way, {"/", "Users", "Shared"}) ||
         isBelow(way, {"/", "Library", "Application Support", "Apple Qmaster"});
}

bool isBelowQmastersFolder(const Way& way) {
  constexpr std::array<std::string_view, 2> kFolder = {"Application Support", "Apple Qmaster"};
  const auto at = std::search(way.begin(), way.end(), kFolder.begin(), kFolder.end());
  return std::distance(at, way.end()) > std::ssize(kFolder);
}

/// By the path asked for a link of Qmaster's folder of any volume would count: one that a user has brought
/// may hold links of root's.
bool isSpoolPlace(const std::string& path, const std::string& asked) {
  const Way real = foundation::pathComponents(path);
  if (isBelowSystemsPlace(real) || isBelowQmastersFolder(real)) return true;
  const Way way = foundation::pathComponents(asked);
  return isBelowSystemsPlace(way) && std::find(way.begin(), way.end(), "..") == way.end();
}

bool onlyAdministratorsCanWrite(const PathLevel& level, const Surroundings& surroundings) {
  const FileStatus& status = level.status;
  if (!isTrustedOwner(status.owner) || (status.mode & S_IWOTH) != 0) return false;
  const bool isTheirs =
      (status.mode & S_IWGRP) == 0 || status.group == 0 || status.group == surroundings.administrators();
  return isTheirs && !platform::mayBeWrittenByList(level.descriptor.get(), status.mode);
}

/// What a file holds that the computer's administrators alone can have written; nothing where anybody else
/// can.
std::string contentsOfAdministratorsFile(const Surroundings& surroundings, const std::string& path) {
  const auto entry = locate(surroundings, path, LastLink::follow);
  if (!entry || !entry.value().status().isRegular()) return {};
  const std::vector<PathLevel>& levels = entry.value().levels;
  const bool trusted = std::all_of(levels.begin(), levels.end(), [&](const PathLevel& level) {
    return onlyAdministratorsCanWrite(level, surroundings);
  });
  if (!trusted) return {};
  const platform::UniqueDescriptor file(::openat(entry.value().folder().descriptor.get(),
                                                 entry.value().name().c_str(),
                                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const auto status = statusOf(file.get(), path);
  if (!status || !status.value().isSameFile(entry.value().status())) return {};
  std::string text(std::min<std::size_t>(status.value().size, kLargestFile), '\0');
  const ssize_t length = ::pread(file.get(), text.data(), text.size(), 0);
  text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return text;
}

bool isNamedByAdministrators(const Surroundings& surroundings, const std::string& asked) {
  std::vector<std::string> homes = {"/"};
  for (const Account& account : surroundings.accounts) {
    if (account.user == 0) homes.push_back(account.home);
  }
  return std::any_of(homes.begin(), homes.end(), [&](const std::string& home) {
    const std::string file = foundation::appendingPathComponent(home, kServicesFile);
    return holdsString(contentsOfAdministratorsFile(surroundings, file), asked);
  });
}

std::string withEntities(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    escaped += character == '&'   ? "&amp;"
               : character == '<' ? "&lt;"
               : character == '>' ? "&gt;"
                                  : std::string(1, character);
  }
  return escaped;
}

/// As the binary form writes a string: a mark, the length, the bytes.
std::string asBinaryObject(const std::string& text) {
  constexpr char kString = 0x50;
  constexpr char kLengthFollows = 0x0F;
  const auto length = static_cast<unsigned>(text.size());
  const auto byte = [](unsigned value) { return static_cast<char>(static_cast<unsigned char>(value)); };
  if (length < 15) return std::string(1, byte(0x50U | length)) + text;
  std::string object(1, static_cast<char>(kString | kLengthFollows));
  if (length < 256) return object + '\x10' + byte(length) + text;
  return object + '\x11' + byte(length >> 8U) + byte(length & 0xFFU) + text;
}

}  // namespace

bool holdsString(const std::string& propertyList, const std::string& text) {
  if (!propertyList.starts_with("bplist")) {
    return propertyList.find("<string>" + withEntities(text) + "</string>") != std::string::npos;
  }
  return propertyList.find(asBinaryObject(text)) != std::string::npos;
}

bool maySpoolBeEmptied(const Surroundings& surroundings, const PathEntry& spool, const std::string& asked) {
  if (isSpoolPlace(spool.path, asked)) return true;
  const Account account = trashAccount(surroundings, spool.levels, spool.levels.size());
  if (account.user != 0 && spool.status().owner == account.user) return true;
  return isNamedByAdministrators(surroundings, asked);
}

}  // namespace helpers
