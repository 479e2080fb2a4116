#include "platform/linux/TreeRemoval.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/foundation/Paths.h"
#include "platform/linux/PathEntry.h"

namespace platform {
namespace {

using foundation::errorWithReason;
using foundation::Result;
using foundation::systemError;

/// Removes what lies in a folder. However deep that is, one descriptor is open at a time: the folder above is
/// closed while those below it are emptied, and found again from there. Where that fails it stays closed.
class TreeRemoval {
 public:
  explicit TreeRemoval(UniqueDescriptor folder) : folder_(std::move(folder)) {}

  Result<void> remove(const std::string& name, const std::string& path) {
    if (::unlinkat(folder_.get(), name.c_str(), 0) == 0) return {};
    if (errno != EISDIR) return systemError(errno, path);
    const Result<void> emptied = empty(name, path);
    if (folder_ && ::unlinkat(folder_.get(), name.c_str(), AT_REMOVEDIR) == 0) return {};
    return emptied ? systemError(errno, path) : emptied;
  }

  Result<void> removeAll(const std::vector<std::string>& names, const std::string& path) {
    Result<void> outcome;
    for (const std::string& name : names) {
      auto removed = remove(name, foundation::appendingPathComponent(path, name));
      if (!removed && outcome) outcome = std::move(removed);
      if (!folder_) break;
    }
    return outcome;
  }

 private:
  Result<void> empty(const std::string& name, const std::string& path) {
    auto inside = openEntry(folder_.get(), name, path, O_DIRECTORY);
    if (!inside) return inside.error();
    const auto names = namesIn(inside.value().get(), path);
    if (!names) return names.error();
    if (names.value().empty()) return {};
    const auto above = statusOf(folder_.get(), path);
    if (!above) return above.error();
    folder_ = std::move(inside).value();
    Result<void> emptied = removeAll(names.value(), path);
    if (!folder_) return emptied;
    auto returned = goUp(above.value(), path);
    return returned ? emptied : returned;
  }

  Result<void> goUp(const FileStatus& above, const std::string& path) {
    auto up = openEntry(folder_.get(), "..", path, O_DIRECTORY);
    folder_.reset();
    if (!up) return up.error();
    const auto found = statusOf(up.value().get(), path);
    if (!found) return found.error();
    if (!found.value().isSameFile(above))
      return errorWithReason(EBUSY, path, "was moved while it was removed");
    folder_ = std::move(up).value();
    return {};
  }

  UniqueDescriptor folder_;
};

Result<TreeRemoval> removalIn(int folder, const std::string& path) {
  UniqueDescriptor own(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
  if (!own) return systemError(errno, path);
  return TreeRemoval(std::move(own));
}

}  // namespace

Result<void> removeItem(int folder, const std::string& name) {
  auto removal = removalIn(folder, name);
  return removal ? removal.value().remove(name, name) : removal.error();
}

Result<void> removeContents(int folder, const std::string& path) {
  const auto names = namesIn(folder, path);
  if (!names) return names.error();
  auto removal = removalIn(folder, path);
  return removal ? removal.value().removeAll(names.value(), path) : removal.error();
}

}  // namespace platform
