#include "workstation/Snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "workstation/Layout.h"
#include "workstation/PropertyListFile.h"
#include "workstation/RecordLine.h"
#include "workstation/Records.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& path) {
  throw std::system_error(errno, std::generic_category(), path.string());
}

char typeLetter(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return 'd';
    case S_IFLNK:
      return 'l';
    case S_IFIFO:
      return 'p';
    case S_IFSOCK:
      return 's';
    case S_IFCHR:
      return 'c';
    case S_IFBLK:
      return 'b';
    default:
      return 'f';
  }
}

/// FNV-1a, 64 bits: tells contents apart, and promises nothing against somebody who wants to deceive it.
std::uint64_t hashOf(const fs::path& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) fail(file);
  std::uint64_t hash = 14695981039346656037ULL;
  std::array<unsigned char, 65536> buffer{};
  ssize_t count = 0;
  while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0) {
    for (ssize_t i = 0; i < count; ++i) {
      hash = (hash ^ buffer[static_cast<std::size_t>(i)]) * 1099511628211ULL;
    }
  }
  ::close(descriptor);
  if (count < 0) fail(file);
  return hash;
}

std::string identityOf(const struct statx& status) {
  return std::to_string(status.stx_dev_major) + ':' + std::to_string(status.stx_dev_minor) + ':' +
         std::to_string(status.stx_ino) + ':' + std::to_string(status.stx_btime.tv_sec) + '.' +
         std::to_string(status.stx_btime.tv_nsec);
}

SnapshotEntry entryAt(const fs::path& place) {
  struct statx status {};
  if (::statx(AT_FDCWD, place.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
    fail(place);
  }
  SnapshotEntry entry;
  entry.type = typeLetter(status.stx_mode);
  entry.mode = status.stx_mode & 07777U;
  entry.user = status.stx_uid;
  entry.group = status.stx_gid;
  entry.identity = identityOf(status);
  if (entry.type == 'l') entry.target = fs::read_symlink(place).string();
  if (entry.type == 'f') {
    entry.size = status.stx_size;
    entry.hash = hashOf(place);
  }
  return entry;
}

void addFolder(const fs::path& place, const std::string& inside, Snapshot& snapshot) {
  for (const auto& found : fs::directory_iterator(place)) {
    const auto path = (inside == "/" ? inside : inside + '/') + found.path().filename().string();
    if (path == stateFolder) continue;
    auto entry = entryAt(found.path());
    const bool isFolder = entry.type == 'd';
    snapshot.entries.emplace(path, std::move(entry));
    if (isFolder) addFolder(found.path(), path, snapshot);
  }
}

constexpr std::string_view heading = "workstation snapshot 1";

std::string lineOf(const std::string& path, const SnapshotEntry& entry) {
  std::string line = "entry\t" + escaped(path) + '\t' + entry.type;
  for (const std::uintmax_t number : {std::uintmax_t{entry.mode}, std::uintmax_t{entry.user},
                                      std::uintmax_t{entry.group}, entry.size, std::uintmax_t{entry.hash}}) {
    line += '\t' + std::to_string(number);
  }
  return line + '\t' + escaped(entry.target) + '\t' + entry.identity + '\n';
}

SnapshotEntry entryOf(const std::vector<std::string>& fields) {
  constexpr std::size_t fieldCount = 10;
  if (fields.size() != fieldCount || fields[2].size() != 1) throw std::invalid_argument("no snapshot entry");
  const auto number = [&](std::size_t field) { return std::strtoull(fields[field].c_str(), nullptr, 10); };
  return {.type = fields[2][0],
          .mode = static_cast<mode_t>(number(3)),
          .user = static_cast<uid_t>(number(4)),
          .group = static_cast<gid_t>(number(5)),
          .size = number(6),
          .target = unescaped(fields[8]),
          .hash = number(7),
          .identity = fields[9]};
}

void loadLine(const std::string& line, Snapshot& snapshot) {
  const auto fields = split(line, '\t');
  if (fields[0] == "entry") {
    snapshot.entries.emplace(unescaped(fields.at(1)), entryOf(fields));
  } else if (fields[0] == "value") {
    snapshot.values.emplace(fields.at(1), unescaped(fields.at(2)));
  } else if (fields[0] == "resident") {
    snapshot.residents.push_back(unescaped(fields.at(1)));
  }
}

}  // namespace

Snapshot takeSnapshot(const Volume& volume) {
  Snapshot snapshot;
  snapshot.entries.emplace("/", entryAt(volume.folder()));
  addFolder(volume.folder(), "/", snapshot);
  snapshot.values = values(volume);
  for (auto& line : split(contentsOf(volume.host(processesFile)).value_or(""), '\n')) {
    if (!line.empty()) snapshot.residents.push_back(std::move(line));
  }
  return snapshot;
}

void saveSnapshot(const Snapshot& snapshot, const fs::path& file) {
  std::string text = std::string(heading) + '\n';
  for (const auto& [path, entry] : snapshot.entries) text += lineOf(path, entry);
  for (const auto& [key, content] : snapshot.values) text += "value\t" + key + '\t' + escaped(content) + '\n';
  for (const auto& line : snapshot.residents) text += "resident\t" + escaped(line) + '\n';
  writeFile(file, text);
}

Snapshot loadSnapshot(const fs::path& file) {
  const auto text = contentsOf(file);
  if (!text) fail(file);
  const auto lines = split(*text, '\n');
  if (lines[0] != heading) throw std::invalid_argument(file.string() + " holds no snapshot");
  Snapshot snapshot;
  for (const auto& line : lines) loadLine(line, snapshot);
  return snapshot;
}

}  // namespace workstation
