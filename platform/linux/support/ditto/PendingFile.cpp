#include "platform/linux/support/ditto/PendingFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "platform/foundation/Paths.h"
#include "platform/posix/GuardedFolders.h"

namespace ditto {
namespace {

using foundation::Result;
using foundation::systemError;
using platform::UniqueDescriptor;

constexpr mode_t kMode = 0644;
constexpr std::array<int, 4> kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
constexpr std::size_t kNameRoom = 24;

/// What the signal handler removes. `isThere` is set when the rest is.
struct Unfinished {
  volatile std::sig_atomic_t isThere = 0;
  int folder = -1;
  std::array<char, kNameRoom> name{};
};
Unfinished unfinished;  // NOLINT(misc-*): a handler can reach nothing but what is global

/// The signal comes again with its usual effect when this returns: SA_RESETHAND.
void removeUnfinished(int signal) {
  if (unfinished.isThere != 0) ::unlinkat(unfinished.folder, unfinished.name.data(), 0);
  ::raise(signal);
}

void removeOnSignals() {
  for (const int signal : kEndingSignals) {
    struct sigaction action {};
    if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = &removeUnfinished;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(signal, &action, nullptr);
  }
}

/// Keeps those signals waiting for the length of a scope.
class EndingSignalsBlocked {
 public:
  EndingSignalsBlocked() {
    sigset_t ending;
    ::sigemptyset(&ending);
    for (const int signal : kEndingSignals) ::sigaddset(&ending, signal);
    ::pthread_sigmask(SIG_BLOCK, &ending, &before_);
  }
  ~EndingSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  EndingSignalsBlocked(const EndingSignalsBlocked&) = delete;
  EndingSignalsBlocked& operator=(const EndingSignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

/// An errno value where something has the name that must not be replaced.
int obstacle(int folder, const std::string& name) {
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT ? 0 : errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode) ? 0 : EINVAL;
}

/// Makes a file under a name that nothing has yet, which stands in unfinished.name then.
UniqueDescriptor makeTemporary(int folder) {
  for (;;) {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, 0) != sizeof number) return {};
    number &= 0xFFFFFFFFFFFF;
    std::snprintf(unfinished.name.data(), kNameRoom, ".ditto-%012llx",
                  static_cast<unsigned long long>(number));
    UniqueDescriptor file(
        ::openat(folder, unfinished.name.data(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
    if (file || errno != EEXIST) return file;
  }
}

/// What root makes in somebody else's folder is theirs: by a strict umask they could not read it otherwise.
/// Where owners cannot be given, on a network volume, it is of use nevertheless.
void giveToFoldersOwner(int file, const struct stat& folder) {
  if (::geteuid() != 0 || folder.st_uid == 0) return;
  static_cast<void>(::fchown(file, folder.st_uid, folder.st_gid));
}

/// The new name should outlast a power failure too; where the folder cannot be synced the file is whole
/// anyway.
void syncFolder(int place) {
  const UniqueDescriptor folder(::openat(place, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) ::fsync(folder.get());
}

}  // namespace

Result<UniqueDescriptor> openPlace(const std::string& path) {
  if (::geteuid() == 0) return platform::openGuardedFolder(std::filesystem::absolute(path));
  UniqueDescriptor place(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!place) return systemError(errno, path);
  return place;
}

Result<PendingFile> PendingFile::create(const std::string& path) {
  if (path.empty()) return systemError(ENOENT, path);
  if (path.ends_with('/')) return systemError(EISDIR, path);
  PendingFile file;
  file.path_ = path;
  file.name_ = foundation::lastPathComponent(path);
  const std::string around = foundation::deletingLastPathComponent(path);
  auto folder = openPlace(around.empty() ? "." : around);
  if (!folder) return systemError(folder.error().code, path);
  file.folder_ = std::move(folder.value());
  if (::fstat(file.folder_.get(), &file.place_) != 0) return systemError(errno, path);
  if (const int reason = obstacle(file.folder_.get(), file.name_); reason != 0)
    return systemError(reason, path);
  const EndingSignalsBlocked blocked;
  file.file_ = makeTemporary(file.folder_.get());
  if (!file.file_) return systemError(errno, path);
  giveToFoldersOwner(file.file_.get(), file.place_);
  file.temporary_ = unfinished.name.data();
  unfinished.folder = file.folder_.get();
  unfinished.isThere = 1;
  removeOnSignals();
  return file;
}

PendingFile::~PendingFile() {
  if (!file_) return;  // moved from, never made, or published
  const EndingSignalsBlocked blocked;
  ::unlinkat(folder_.get(), temporary_.c_str(), 0);
  unfinished.isThere = 0;
}

bool PendingFile::liesIn(const struct stat& folder) const {
  return folder.st_dev == place_.st_dev && folder.st_ino == place_.st_ino;
}

Result<void> PendingFile::publish() {
  if (::fsync(file_.get()) != 0) return systemError(errno, path_);
  const EndingSignalsBlocked blocked;
  if (::renameat(folder_.get(), temporary_.c_str(), folder_.get(), name_.c_str()) != 0) {
    return systemError(errno, path_);
  }
  unfinished.isThere = 0;
  file_.reset();
  syncFolder(folder_.get());
  return {};
}

}  // namespace ditto
