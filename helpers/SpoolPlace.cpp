#include "helpers/SpoolPlace.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "helpers/TrashCan.h"
#include "platform/foundation/Paths.h"
#include "platform/posix/AccessLists.h"

namespace helpers {
namespace {

constexpr std::size_t kLargestFile = 1UL << 20;
constexpr const char* kServicesFile = "Library/Application Support/Apple Qmaster/qmasterservices.plist";

bool isSpoolPlace(const std::string& path) {
  const std::vector<std::string> way = foundation::pathComponents(path);
  if (std::find(way.begin(), way.end(), "..") != way.end()) return false;
  const auto holds = [&way](std::initializer_list<const char*> names) {
    const auto at = std::search(way.begin(), way.end(), names.begin(), names.end());
    return at != way.end() && at + static_cast<std::ptrdiff_t>(names.size()) != way.end() ? at : way.end();
  };
  const auto top = way.begin();
  return holds({"/", "var", "spool"}) == top || holds({"/", "private", "var", "spool"}) == top ||
         holds({"/", "Users", "Shared"}) == top ||
         holds({"Application Support", "Apple Qmaster"}) != way.end();
}

bool onlyAdministratorsCanWrite(const PathLevel& level, const std::optional<gid_t>& administrators) {
  const FileStatus& status = level.status;
  if (!isTrustedOwner(status.owner) || (status.mode & S_IWOTH) != 0) return false;
  const bool isTheirs = (status.mode & S_IWGRP) == 0 || status.group == 0 || status.group == administrators;
  return isTheirs && !platform::mayBeWrittenByList(level.descriptor.get(), status.mode);
}

/// What a file holds that the computer's administrators alone can have written; nothing where anybody else
/// can.
std::string contentsOfAdministratorsFile(const Surroundings& surroundings, const std::string& path) {
  const auto entry = locate(surroundings, path, LastLink::follow);
  if (!entry || !entry.value().status().isRegular()) return {};
  const std::vector<PathLevel>& levels = entry.value().levels;
  const bool trusted = std::all_of(levels.begin(), levels.end(), [&](const PathLevel& level) {
    return onlyAdministratorsCanWrite(level, surroundings.administrators);
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
  if (isSpoolPlace(spool.path) || isSpoolPlace(asked)) return true;
  const Account account = trashAccount(surroundings, spool.levels, spool.levels.size());
  if (account.user != 0 && spool.status().owner == account.user) return true;
  return isNamedByAdministrators(surroundings, asked);
}

}  // namespace helpers
