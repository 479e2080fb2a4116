#include "platform/linux/ApplicationRegistry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "platform/linux/ApplicationBundles.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/linux/XmlPropertyListWriter.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/PrivateFolder.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using namespace std::chrono_literals;
using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;

constexpr auto kLockAttempt = 10ms;
constexpr int kMostLockAttempts = 500;

bool isRoot() {
  return current().usersAndFolders.userID() == 0;
}

std::string registryPath(const std::string& root) {
  return root + (isRoot() ? "" : current().usersAndFolders.homeDirectory()) + kApplicationRegistry;
}

Result<UniqueDescriptor> openRegistryFolder(const std::string& registry) {
  const std::string folder = foundation::deletingLastPathComponent(registry);
  if (const int reason = makeFolders(folder); reason != 0) return systemError(reason, folder);
  return openGuardedFolder(folder);
}

/// Held until the descriptor is closed. The lock file stays: removing it would let two hold a lock.
Result<UniqueDescriptor> lockRegistry(int folder, const std::string& registry) {
  const std::string name = "." + foundation::lastPathComponent(registry) + ".lock";
  UniqueDescriptor lock(::openat(folder, name.c_str(),
                                 O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600));
  if (!lock) return systemError(errno, registry);
  for (int attempt = 0; ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK && errno != EINTR) return systemError(errno, registry);
    if (attempt == kMostLockAttempts) return systemError(EBUSY, registry);
    current().clock.sleep(kLockAttempt);
  }
  return lock;
}

Result<std::string> serialized(const std::vector<std::string>& paths) {
  PropertyList::Array entries(paths.begin(), paths.end());
  const PropertyList registry = PropertyList::Dictionary{{"Applications", std::move(entries)}};
  return LinuxPropertyLists().serialize(registry, PropertyListFormat::xml);
}

/// Writes and closes a new file, readable by everybody whatever the umask; 0 or an errno value.
int writeNewFile(int folder, const std::string& name, const std::string& bytes) {
  const UniqueDescriptor file(
      ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return errno;
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t count = ::write(file.get(), bytes.data() + at, bytes.size() - at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    at += static_cast<std::size_t>(count);
  }
  return ::fchmod(file.get(), 0644) == 0 && ::fsync(file.get()) == 0 ? 0 : errno;
}

/// Its owner becomes the process's, whoever's file it replaces: root takes no registry but its own.
Result<void> replaceRegistry(int folder, const std::string& registry, const std::string& bytes) {
  const std::string name = foundation::lastPathComponent(registry);
  const auto beside = PrivateFolder::make(folder, registry);
  if (!beside) return beside.error();
  const int from = beside.value().descriptor();
  if (const int reason = writeNewFile(from, name, bytes); reason != 0) return systemError(reason, registry);
  if (::renameat(from, name.c_str(), folder, name.c_str()) != 0) return systemError(errno, registry);
  ::fsync(folder);
  return {};
}

/// Makes room for one more by dropping what is gone, where there is none.
bool hasRoom(const std::string& root, std::vector<std::string>& paths) {
  if (paths.size() < kMostBundles) return true;
  const auto isGone = [&](const std::string& path) { return readBundle(root + path).identifier().empty(); };
  paths.erase(std::remove_if(paths.begin(), paths.end(), isGone), paths.end());
  return paths.size() < kMostBundles;
}

}  // namespace

Result<void> registerApplicationBundle(const std::string& root, const std::string& path) {
  std::error_code none;
  std::string bundle = foundation::appendingPathComponent(std::filesystem::absolute(path, none).string(), "");
  if (readBundle(root + bundle).identifier().empty()) return systemError(EINVAL, path);
  if (!isXmlText(bundle)) return systemError(ENOTSUP, path);
  const std::string registry = registryPath(root);
  const auto folder = openRegistryFolder(registry);
  if (!folder) return folder.error();
  const auto lock = lockRegistry(folder.value().get(), registry);
  if (!lock) return lock.error();
  std::vector<std::string> paths =
      registeredApplications(registry, isRoot() ? Trust::rootOnly : Trust::anybody);
  if (std::find(paths.begin(), paths.end(), bundle) != paths.end()) return {};
  if (!hasRoom(root, paths)) return systemError(ENOSPC, registry);
  paths.push_back(std::move(bundle));
  const auto bytes = serialized(paths);
  if (!bytes) return bytes.error();
  return replaceRegistry(folder.value().get(), registry, bytes.value());
}

}  // namespace platform
