#include "tests/hardening/Snapshot.h"

#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "tests/support/TemporaryFolder.h"

namespace hardening {
namespace {

std::string timeOf(const timespec& time) {
  return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

std::string attributesOf(const std::string& path) {
  std::array<char, 4096> names{};
  const ssize_t length = ::llistxattr(path.c_str(), names.data(), names.size());
  std::string text;
  for (ssize_t at = 0; at < length;) {
    const std::string name = names.data() + at;
    std::array<char, 4096> value{};
    const ssize_t size = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    if (size >= 0) text += " " + name + "=" + std::string(value.data(), static_cast<std::size_t>(size));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
  return text;
}

int removeOne(const char* path, const struct stat* /*status*/, int /*type*/, FTW* place) {
  if (place->level > 0) static_cast<void>(std::remove(path));
  return 0;
}

}  // namespace

std::string described(const std::string& path, Changed changed) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return "missing";
  char words[128];
  std::snprintf(words, sizeof words, "%o %u:%u", status.st_mode, status.st_uid, status.st_gid);
  std::string text = words;
  if (changed == Changed::told) {
    text += " changed " + timeOf(status.st_ctim) + " links " + std::to_string(status.st_nlink);
  }
  if (changed == Changed::told || !S_ISDIR(status.st_mode)) text += " modified " + timeOf(status.st_mtim);
  if (S_ISLNK(status.st_mode)) text += " to " + std::filesystem::read_symlink(path).string();
  if (S_ISREG(status.st_mode)) text += " holds " + support::contentOf(path);
  return text + attributesOf(path);
}

Snapshot snapshotOf(const std::string& folder, Changed changed) {
  Snapshot snapshot;
  snapshot[""] = described(folder, changed);
  std::error_code ignored;
  for (auto entry = std::filesystem::recursive_directory_iterator(folder, ignored); entry != end(entry);
       entry.increment(ignored)) {
    const std::string path = entry->path().string();
    snapshot[path.substr(folder.size() + 1)] = described(path, changed);
  }
  return snapshot;
}

std::vector<std::string> differences(const Snapshot& before, const Snapshot& after) {
  std::vector<std::string> lines;
  const auto add = [&lines](const char* sign, const Snapshot& these, const Snapshot& those) {
    for (const auto& [path, words] : these) {
      const auto other = those.find(path);
      if (other == those.end() || other->second != words) lines.push_back(sign + path + " " + words);
    }
  };
  add("- ", before, after);
  add("+ ", after, before);
  return lines;
}

void clear(const std::string& folder) {
  ::nftw(folder.c_str(), removeOne, 64, FTW_DEPTH | FTW_PHYS);
}

}  // namespace hardening
