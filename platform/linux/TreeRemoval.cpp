#include "platform/linux/TreeRemoval.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/foundation/Paths.h"
#include "platform/linux/PathEntry.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

Result<void> removeBelow(int folder, const std::string& name, const std::string& path) {
  if (::unlinkat(folder, name.c_str(), 0) == 0) return {};
  if (errno != EISDIR) return systemError(errno, path);
  const auto inside = openEntry(folder, name, path, O_DIRECTORY);
  if (!inside) return inside.error();
  Result<void> emptied = removeContents(inside.value().get(), path);
  if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0) return {};
  return emptied ? systemError(errno, path) : emptied;
}

}  // namespace

Result<void> removeItem(int folder, const std::string& name) {
  return removeBelow(folder, name, name);
}

Result<void> removeContents(int folder, const std::string& path) {
  const auto names = namesIn(folder, path);
  if (!names) return names.error();
  Result<void> outcome;
  for (const std::string& name : names.value()) {
    auto removed = removeBelow(folder, name, foundation::appendingPathComponent(path, name));
    if (!removed && outcome) outcome = std::move(removed);
  }
  return outcome;
}

}  // namespace platform
