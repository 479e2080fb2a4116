#include "platform/posix/PrivateFolder.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <utility>

#include "platform/foundation/Text.h"
#include "platform/posix/AccessLists.h"
#include "platform/posix/ExclusiveRename.h"
#include "platform/posix/FileMetadata.h"
#include "platform/posix/HeldEntries.h"
#include "platform/posix/ItemLocks.h"
#include "platform/posix/PathEntry.h"
#include "platform/posix/TreeRemoval.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr mode_t kOurs = 0700;

/// A name that nobody can guess and occupy beforehand; empty when the system gives no random numbers.
std::string newName() {
  std::array<unsigned char, 8> bytes{};
  if (::getentropy(bytes.data(), bytes.size()) != 0) return {};
  std::string name = ".copying-";
  for (const unsigned char byte : bytes) name += foundation::stringWithFormat("%02x", unsigned{byte});
  return name;
}

/// What is made in the folder must not take over the lists of the folder around it.
Result<void> closeToOthers(int folder, std::string_view path) {
  removeAccessLists(folder);
  if (::geteuid() != 0 || !mayBeWrittenByList(folder, kOurs)) return {};
  return foundation::errorWithReason(EPERM, path, "an access list opens the folder that was made for it");
}

/// An item without what keeps it where it is, as long as this lives.
class Movable {
 public:
  explicit Movable(UniqueDescriptor item) : item_(std::move(item)) {
    if (!item_) return;
    locks_ = takeLocks(item_.get());
    const auto status = statusOf(item_.get(), "");
    if (!status || !status.value().isFolder()) return;
    mode_ = static_cast<mode_t>(status.value().mode & 07777U);
    // A folder that changes its parent is written to.
    static_cast<void>(setPermissions(item_.get(), *mode_ | kOurs, ""));
  }
  ~Movable() {
    if (mode_) static_cast<void>(setPermissions(item_.get(), *mode_, ""));
    if (locks_ != 0) giveLocks(item_.get(), locks_);
  }
  Movable(const Movable&) = delete;
  Movable& operator=(const Movable&) = delete;

 private:
  const UniqueDescriptor item_;
  std::uint32_t locks_ = 0;
  std::optional<mode_t> mode_;
};

}  // namespace

Result<void> requireFreshFolder(int folder, mode_t mode, std::string_view path) {
  const auto status = statusOf(folder, path);
  if (!status) return status.error();
  const FileStatus& found = status.value();
  // A memory card has its own modes for everything. Only what root makes is worth an exchange.
  const bool isAsMade = (found.mode & 0777U) == mode || ::geteuid() != 0;
  const bool isOurs = found.isFolder() && found.owner == ::geteuid() && isAsMade;
  const auto names = namesIn(folder, path, 1);
  if (!names) return names.error();
  if (isOurs && names.value().empty()) return {};
  return foundation::errorWithReason(EBUSY, path, "the folder that was made for it was exchanged");
}

Result<PrivateFolder> PrivateFolder::make(int parent, std::string_view path) {
  UniqueDescriptor held(::fcntl(parent, F_DUPFD_CLOEXEC, 3));
  if (!held) return systemError(errno, path);
  std::string name = newName();
  if (name.empty() || ::mkdirat(parent, name.c_str(), kOurs) != 0) return systemError(errno, path);
  UniqueDescriptor made(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const int reason = errno;
  PrivateFolder folder(std::move(held), std::move(name), std::move(made));
  if (!folder.folder_) return systemError(reason, path);
  auto own = closeToOthers(folder.folder_.get(), path);
  if (own) own = requireFreshFolder(folder.folder_.get(), kOurs, path);
  if (own) return folder;
  // What is not ours is not ours to empty either.
  folder.folder_.reset();
  return own.error();
}

PrivateFolder::~PrivateFolder() {
  if (!parent_) return;
  if (folder_) static_cast<void>(removeOwnContents(folder_.get(), name_));
  ::unlinkat(parent_.get(), name_.c_str(), AT_REMOVEDIR);
}

Result<void> renameOutOf(int privateFolder, const std::string& name, int toFolder, std::string_view path) {
  const auto rename = [&] { return renameWithoutReplacing(privateFolder, name, toFolder, name, path); };
  auto renamed = rename();
  const bool isKept = !renamed && (renamed.error().code == EACCES || renamed.error().code == EPERM);
  if (!isKept) return renamed;
  const Movable item(holdEntry(privateFolder, name, LastLink::keep));
  return rename();
}

}  // namespace platform
