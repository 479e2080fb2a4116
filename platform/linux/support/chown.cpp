// chown [-R] owner[:group] path..., for systems that have no chown at /usr/sbin.
//
// Safe when root runs it on paths in folders that a user controls: a path is opened as PathEntry.h says,
// which follows no link that anybody but root can have planted. Only regular files and folders change hands,
// never links or devices, and never a file that has further names, because one of them may be a file that the
// user must not get. Exits 0 when all was done, 1 when something was not, 64 for wrong arguments.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/foundation/Paths.h"
#include "platform/posix/OwnerName.h"
#include "platform/posix/PathEntry.h"

namespace {

using foundation::systemError;
using platform::Ownership;

constexpr int kUsageError = 64;
constexpr int kMostNesting = 256;

int complain(const std::string& message) {
  std::fprintf(stderr, "chown: %s\n", message.c_str());
  return 1;
}

int complain(const std::string& path, const char* reason) {
  return complain(path + ": " + reason);
}

class OwnerChange {
 public:
  OwnerChange(int root, Ownership ownership, bool isRecursive)
      : root_(root), ownership_(ownership), isRecursive_(isRecursive) {}

  [[nodiscard]] int apply(const std::string& path) const {
    std::error_code failure;
    const auto item = platform::locate(root_, std::filesystem::absolute(path, failure).string());
    return item ? change(item.value().self().descriptor.get(), path, 0) : complain(item.error().description);
  }

 private:
  /// Entries first, so that a folder given away is not walked any more.
  [[nodiscard]] int change(int item, const std::string& path, int depth) const {
    const auto status = platform::statusOf(item, path);
    if (!status) return complain(status.error().description);
    const bool isFolder = status.value().isFolder();
    if (!isFolder && !status.value().isRegular()) return complain(path, "neither a file nor a folder");
    if (!isFolder && status.value().links > 1) return complain(path, "has further names");
    if (!isFolder && !keptNames_.has(item, -1, ""))  // neither is needed here
      return complain(path, "exchanged while it was looked at");
    const int failed = isFolder && isRecursive_ ? changeEntries(item, path, depth) : 0;
    constexpr auto kLeave = static_cast<uid_t>(-1);
    if (::fchownat(item, "", ownership_.owner.value_or(kLeave), ownership_.group.value_or(kLeave),
                   AT_EMPTY_PATH) != 0) {
      return complain(systemError(errno, path).description);
    }
    return failed;
  }

  [[nodiscard]] int changeEntries(int folder, const std::string& path, int depth) const {
    if (depth == kMostNesting) return complain(path, "nested too deeply");
    const auto names = platform::namesIn(folder, path);
    if (!names) return complain(names.error().description);
    int failed = 0;
    for (const std::string& name : names.value()) {
      const std::string below = foundation::appendingPathComponent(path, name);
      const auto item = platform::openEntry(folder, name, below);
      failed |= item ? change(item.value().get(), below, depth + 1) : complain(item.error().description);
    }
    return failed;
  }

  int root_;
  Ownership ownership_;
  bool isRecursive_;
  platform::KeptNames keptNames_ = {};
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
  const auto ownership = platform::ownershipNamed(arguments.front());
  if (!ownership) return complain(arguments.front(), "no such user or group");
  arguments.erase(arguments.begin());
  const platform::UniqueDescriptor root(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  const OwnerChange change(root.get(), *ownership, isRecursive);
  int status = 0;
  for (const std::string& path : arguments) status |= change.apply(path);
  return status;
}
