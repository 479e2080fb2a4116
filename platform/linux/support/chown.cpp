// chown [-R] owner[:group] path..., for systems that have no chown at /usr/sbin.
//
// Safe when root runs it on paths in folders that a user controls: every folder on the way is held open, and
// a symbolic link is followed only where nobody but root could have planted it. Only regular files and
// folders change hands, never links or devices, and never a file that has further names, because one of them
// may be a file that the user must not get. Exits 0 when all was done, 1 when something was not, 64 for wrong
// arguments.

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Paths.h"
#include "platform/posix/UniqueDescriptor.h"

namespace {

using platform::UniqueDescriptor;

constexpr int kUsageError = 64;
constexpr int kMostLinks = 40;
constexpr int kMostNesting = 256;

struct Owner {
  uid_t user = 0;
  gid_t group = static_cast<gid_t>(-1);  ///< stays as it is
};

int complain(const std::string& path, const char* reason) {
  std::fprintf(stderr, "chown: %s: %s\n", path.c_str(), reason);
  return 1;
}

/// A whole decimal number that is an id, but not the one that stands for "leave it".
std::optional<unsigned> idNumber(const std::string& text) {
  if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
    return {};
  const unsigned long long number = std::stoull(text);
  return number < UINT_MAX ? std::optional(static_cast<unsigned>(number)) : std::nullopt;
}

std::optional<uid_t> userNamed(const std::string& name) {
  const passwd* const entry = ::getpwnam(name.c_str());
  return entry != nullptr ? std::optional(entry->pw_uid) : idNumber(name);
}

/// A Mac's group "wheel" is group 0, whatever that is called here.
std::optional<gid_t> groupNamed(const std::string& name) {
  const group* const entry = ::getgrnam(name.c_str());
  if (entry != nullptr) return entry->gr_gid;
  return name == "wheel" ? std::optional<gid_t>(0) : idNumber(name);
}

std::optional<Owner> parseOwner(const std::string& text) {
  const std::size_t colon = text.find(':');
  const auto user = userNamed(text.substr(0, colon));
  if (!user) return std::nullopt;
  if (colon == std::string::npos) return Owner{*user};
  const auto group = groupNamed(text.substr(colon + 1));
  return group ? std::optional(Owner{*user, *group}) : std::nullopt;
}

/// Whether only root can make entries in a folder.
bool isRootsOwn(const UniqueDescriptor& folder) {
  struct stat status {};
  return ::fstat(folder.get(), &status) == 0 && status.st_uid == 0 &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Walks a path, one component after the other.
class Walk {
 public:
  explicit Walk(const std::string& path) {
    const auto components = foundation::pathComponents(path);
    rest_.assign(components.begin(), components.end());
  }

  /// The item, open as a mere place (O_PATH); none with errno set on failure.
  UniqueDescriptor open() {
    UniqueDescriptor place(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    while (place && !rest_.empty()) {
      const std::string component = rest_.front();
      rest_.pop_front();
      UniqueDescriptor next(component == "/"
                                ? ::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)
                                : ::openat(place.get(), component.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
      if (!next) return next;
      const bool isLink = isSymbolicLink(next);
      if (!isLink) place = std::move(next);
      if (isLink && !follow(place, component)) return {};
    }
    return place;
  }

 private:
  static bool isSymbolicLink(const UniqueDescriptor& item) {
    struct stat status {};
    return ::fstat(item.get(), &status) == 0 && S_ISLNK(status.st_mode);
  }

  /// Puts a link's target in the place of its name.
  bool follow(const UniqueDescriptor& folder, const std::string& name) {
    errno = ELOOP;
    if (!isRootsOwn(folder) || ++links_ > kMostLinks || rest_.empty()) return false;
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(folder.get(), name.c_str(), target.data(), target.size());
    if (length <= 0) return false;
    target.resize(static_cast<std::size_t>(length));
    const auto components = foundation::pathComponents(target);
    rest_.insert(rest_.begin(), components.begin(), components.end());
    return true;
  }

  std::deque<std::string> rest_;
  int links_ = 0;
};

class OwnerChange {
 public:
  OwnerChange(Owner owner, bool isRecursive) : owner_(owner), isRecursive_(isRecursive) {}

  int apply(const std::string& path) const {
    const UniqueDescriptor item = Walk(path).open();
    return item ? change(item, path, 0) : complain(path, std::strerror(errno));
  }

 private:
  /// Entries first, so that a folder given away is not walked any more.
  int change(const UniqueDescriptor& item, const std::string& path, int depth) const {
    struct stat status {};
    if (::fstat(item.get(), &status) != 0) return complain(path, std::strerror(errno));
    const bool isFolder = S_ISDIR(status.st_mode);
    if (!isFolder && !S_ISREG(status.st_mode)) return complain(path, "neither a file nor a folder");
    if (!isFolder && status.st_nlink > 1) return complain(path, "has further names");
    const int failed = isFolder && isRecursive_ ? changeEntries(item, path, depth) : 0;
    if (::fchownat(item.get(), "", owner_.user, owner_.group, AT_EMPTY_PATH) != 0) {
      return complain(path, std::strerror(errno));
    }
    return failed;
  }

  int changeEntries(const UniqueDescriptor& folder, const std::string& path, int depth) const {
    if (depth == kMostNesting) return complain(path, "nested too deeply");
    const int listing = ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(listing < 0 ? nullptr : ::fdopendir(listing),
                                                      &::closedir);
    if (!entries) return complain(path, std::strerror(errno));
    int failed = 0;
    while (const dirent* const entry = ::readdir(entries.get())) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") {
        failed |= changeEntry(folder, name, foundation::appendingPathComponent(path, name), depth);
      }
    }
    return failed;
  }

  int changeEntry(const UniqueDescriptor& folder, const std::string& name, const std::string& path,
                  int depth) const {
    const UniqueDescriptor item(::openat(folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return item ? change(item, path, depth + 1) : complain(path, std::strerror(errno));
  }

  Owner owner_;
  bool isRecursive_;
};

int usage() {
  std::fputs("usage: chown [-R] owner[:group] path...\n", stderr);
  return kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool isRecursive = !arguments.empty() && arguments.front() == "-R";
  if (isRecursive) arguments.erase(arguments.begin());
  if (arguments.size() < 2 || arguments.front().starts_with('-')) return usage();
  const auto owner = parseOwner(arguments.front());
  if (!owner) return complain(arguments.front(), "no such user or group");
  arguments.erase(arguments.begin());
  int status = 0;
  for (const std::string& path : arguments) status |= OwnerChange(*owner, isRecursive).apply(path);
  return status;
}
