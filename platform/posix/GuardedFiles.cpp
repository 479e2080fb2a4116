#include "platform/posix/GuardedFiles.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <functional>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "platform/posix/AccessLists.h"
#include "platform/posix/ExclusiveRename.h"
#include "platform/posix/FileStates.h"
#include "platform/posix/GuardedFolders.h"
#include "platform/posix/HeldEntries.h"
#include "platform/posix/PathEntry.h"
#include "platform/posix/RegularFile.h"
#include "platform/posix/TreeCopy.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

/// How many of the bytes could be written; errno says why it is not all of them.
std::size_t writeWhatFits(int descriptor, std::string_view bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = ::write(descriptor, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) break;
    done += static_cast<std::size_t>(written);
  }
  return done;
}

Result<void> writeAll(int descriptor, std::string_view bytes, const std::string& path) {
  if (writeWhatFits(descriptor, bytes) < bytes.size()) return systemError(errno, path);
  return {};
}

class GuardedWritableFile : public WritableFile {
 public:
  GuardedWritableFile(UniqueDescriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  Result<void> write(std::string_view bytes) override {
    const std::size_t written = writeWhatFits(descriptor_.get(), bytes);
    if (written == bytes.size()) return {};
    const int reason = errno;
    if (appends_ && written > 0) takeBack(static_cast<off_t>(written));
    return systemError(reason, path_);
  }
  Result<void> seekToEnd() override {
    const int flags = ::fcntl(descriptor_.get(), F_GETFL);
    appends_ = flags >= 0 && ::fcntl(descriptor_.get(), F_SETFL, flags | O_APPEND) == 0;
    if (!appends_ || ::lseek(descriptor_.get(), 0, SEEK_END) < 0) return systemError(errno, path_);
    return {};
  }

 private:
  /// Unless somebody else has appended meanwhile: what is theirs stays, with our part before it.
  void takeBack(off_t length) {
    struct stat status {};
    const off_t end = ::lseek(descriptor_.get(), 0, SEEK_CUR);
    if (::fstat(descriptor_.get(), &status) != 0 || status.st_size != end) return;
    static_cast<void>(::ftruncate(descriptor_.get(), end - length));
  }

  bool appends_ = false;
  UniqueDescriptor descriptor_;
  std::string path_;
};

/// A name that nobody can guess and occupy beforehand, independent of the target's (which may be as long as a
/// name can be).
std::string temporaryName() {
  std::array<unsigned char, 12> bytes{};
  if (::getentropy(bytes.data(), bytes.size()) != 0) return {};
  std::string name = ".quillmend.";
  for (const unsigned char byte : bytes) name += foundation::stringWithFormat("%02x", unsigned{byte});
  return name;
}

/// What becomes of a file that lies where another is put.
enum class Existing { replaced, kept };

/// A temporary file beside the one that it will be; gone with the object unless it was renamed.
class ReplacementFile {
 public:
  ReplacementFile(const GuardedPlace& target, mode_t mode)
      : target_(target),
        name_(temporaryName()),
        descriptor_(::openat(target.folder.get(), name_.c_str(),
                             O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)) {}
  ~ReplacementFile() {
    if (descriptor_ && !renamed_) ::unlinkat(target_.folder.get(), name_.c_str(), 0);
  }
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(descriptor_); }
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  /// Answers 0 or an errno value.
  [[nodiscard]] int takePlace(Existing existing) {
    const int error = existing == Existing::replaced ? replaceTarget() : takeFreePlace();
    renamed_ = error == 0;
    return error;
  }

 private:
  [[nodiscard]] int replaceTarget() const {
    const int folder = target_.folder.get();
    return ::renameat(folder, name_.c_str(), folder, target_.name.c_str()) == 0 ? 0 : errno;
  }
  [[nodiscard]] int takeFreePlace() const {
    const int folder = target_.folder.get();
    const auto renamed = renameWithoutReplacing(folder, name_, folder, target_.name, name_);
    return renamed ? 0 : renamed.error().code;
  }

  const GuardedPlace& target_;
  std::string name_;
  UniqueDescriptor descriptor_;
  bool renamed_ = false;
};

/// What the group may do is no more than what everybody may.
mode_t withoutGroupsOwnRights(mode_t mode) {
  return static_cast<mode_t>((mode & 0707U) | ((mode & 07U) << 3U));
}

bool giveTo(int descriptor, uid_t owner, gid_t group) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return false;
  const bool isGivenAlready = status.st_uid == owner && status.st_gid == group;
  return isGivenAlready || ::fchown(descriptor, owner, group) == 0;
}

/// Gives the replacement the owner and mode of the file that it replaces. Set-id bits are not taken over: as
/// root that would put new content under a right that was given to the old.
bool takeOverAttributes(int descriptor, const struct stat& old) {
  mode_t mode = old.st_mode & 0777U;
  if (!giveTo(descriptor, old.st_uid, old.st_gid)) {
    if (::geteuid() == 0) return false;
    if (::fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) != 0) mode = withoutGroupsOwnRights(mode);
  }
  return ::fchmod(descriptor, mode) == 0;
}

/// A file that root makes in somebody else's folder becomes that folder's owner's. By its descriptor, and
/// while it is still empty: nothing else can change hands, whatever is renamed meanwhile.
bool giveToFoldersOwner(int descriptor, int folder) {
  struct stat around {};
  if (::geteuid() != 0) return true;
  if (::fstat(folder, &around) != 0) return false;
  return around.st_uid == 0 || giveTo(descriptor, around.st_uid, around.st_gid);
}

/// Answers 0 or an errno value.
int renameExclusively(const GuardedPlace& from, const GuardedPlace& to) {
  const auto renamed =
      renameWithoutReplacing(from.folder.get(), from.name, to.folder.get(), to.name, from.name);
  return renamed ? 0 : renamed.error().code;
}

Result<void> moveAcrossFileSystems(const GuardedPlace& from, const GuardedPlace& to,
                                   const std::string& path) {
  return moveByCopy(from.folder.get(), from.name, to.folder.get(), path,
                    [&](int folder, const std::string& name) {
                      return renameWithoutReplacing(folder, name, to.folder.get(), to.name, path);
                    });
}

/// A regular file that is no link. Root does not open what has further names, because one of them may be a
/// file that is not for the user whose folder this is.
Result<UniqueDescriptor> openFileItself(const std::string& path, int flags) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const int folder = place.value().folder.get();
  const std::string& name = place.value().name;
  auto file = openRegularFile(folder, name, flags | O_NOFOLLOW, path);
  if (!file || ::geteuid() != 0) return file;
  const auto status = statusOf(file.value().get(), path);
  if (!status) return status.error();
  if (status.value().links > 1 || !hasKeptItsName(file.value().get(), folder, name)) {
    return systemError(EMLINK, path);
  }
  return file;
}

/// Whether a file is to outlast a power cut from the moment on that it is written.
enum class Sync { yes, no };

struct Replacement {
  Sync sync = Sync::yes;
  Existing existing = Existing::replaced;
  /// Asked just before the file takes its place: 0, or why it is not to, as an errno value.
  std::function<int()> refusal = {};
};

/// Puts a file in the place of what lies there, `old` where that is a file. What replaces a file may be as
/// confidential as that: nobody else reads it before it has its mode. Answers the file that it wrote.
Result<FileState> writeReplacement(const GuardedPlace& target, const struct stat* old, std::string_view bytes,
                                   const std::string& path, const Replacement& how) {
  ReplacementFile file(target, old != nullptr ? 0600 : 0644);
  if (!file.isOpen()) return systemError(errno, path);
  const bool isNew = old == nullptr;
  if (isNew && !giveToFoldersOwner(file.descriptor(), target.folder.get())) return systemError(errno, path);
  if (auto written = writeAll(file.descriptor(), bytes, path); !written) return written.error();
  if (!isNew && !takeOverAttributes(file.descriptor(), *old)) return systemError(errno, path);
  struct stat status {};
  const bool isLasting =
      (how.sync == Sync::no || ::fsync(file.descriptor()) == 0) && ::fstat(file.descriptor(), &status) == 0;
  if (!isLasting) return systemError(errno, path);
  if (const int reason = how.refusal ? how.refusal() : 0; reason != 0) return systemError(reason, path);
  if (const int reason = file.takePlace(how.existing); reason != 0) return systemError(reason, path);
  // Makes the renaming itself last through a power cut.
  if (how.sync == Sync::yes) ::fsync(target.folder.get());
  return stateOf(status);
}

/// What lies there itself, which is no link nor a folder, is what was seen.
bool isStill(const GuardedPlace& target, const std::optional<FileState>& seen) {
  struct stat now {};
  if (::fstatat(target.folder.get(), target.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT && !seen;
  }
  return S_ISREG(now.st_mode) && seen == stateOf(now);
}

bool othersMayWrite(const FileStatus& folder) {
  return (folder.mode & (S_IWGRP | S_IWOTH)) != 0;
}

/// Nobody else can take away, nor replace, what is not theirs in the folder.
bool guardsItsEntries(const PathLevel& level) {
  const FileStatus& folder = level.status;
  return isTrustedOwner(folder.owner) && (!othersMayWrite(folder) || (folder.mode & S_ISVTX) != 0) &&
         !mayBeWrittenByList(level.descriptor.get(), folder.mode & static_cast<mode_t>(~S_IWGRP));
}

}  // namespace

Result<std::string> GuardedFileQueries::readFileItself(const std::string& path, std::uint64_t limit) {
  const auto file = openFileItself(path, O_RDONLY);
  if (!file) return file.error();
  return readWholeFile(file.value().get(), limit, path);
}

bool GuardedFileQueries::isOutOfOthersReach(const std::string& path) {
  const UniqueDescriptor root = holdFolder(AT_FDCWD, "/");
  const auto entry = root ? locate(root.get(), path) : systemError(errno, path);
  if (!entry || !entry.value().status().isFolder() || othersMayWrite(entry.value().status())) return false;
  return std::all_of(entry.value().levels.begin(), entry.value().levels.end(), guardsItsEntries);
}

Result<void> GuardedFileChanges::createDirectory(const std::string& path) {
  auto place = openGuardedPlace(path);
  const std::string parent = foundation::deletingLastPathComponent(path);
  if (!place && place.error().code == ENOENT && !parent.empty() && parent != path) {
    if (auto made = createDirectory(parent); !made) return made;
    place = openGuardedPlace(path);
  }
  if (!place) return place.error();
  const int reason = makeFolderForOwner(place.value().folder.get(), place.value().name, 0777);
  if (reason == 0 || (reason == EEXIST && openGuardedFolder(path))) return {};
  return systemError(reason, path);
}

Result<void> GuardedFileChanges::move(const std::string& from, const std::string& to) {
  const auto source = openGuardedPlace(from);
  if (!source) return source.error();
  const auto target = openGuardedPlace(to);
  if (!target) return target.error();
  const int reason = renameExclusively(source.value(), target.value());
  if (reason == 0) return {};
  if (reason == EXDEV) return moveAcrossFileSystems(source.value(), target.value(), from);
  return systemError(reason, reason == EEXIST ? to : from);
}

Result<void> GuardedFileChanges::copy(const std::string& from, const std::string& to) {
  return copyItemAtPath(from, to);
}

Result<void> GuardedFileChanges::copyForOwnUse(const std::string& from, const std::string& to) {
  CopyOptions options;
  options.topMode = ::geteuid() == 0 ? 0755 : 0700;
  return copyItemAtPath(from, to, options);
}

Result<void> GuardedFileChanges::remove(const std::string& path) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const std::string& name = place.value().name;
  if (name == "/" || name == "." || name == "..") return systemError(EINVAL, path);
  auto removed = removeItem(place.value().folder.get(), name);
  return removed ? removed : systemError(removed.error().code, path);
}

namespace {

Result<void> replaceFile(const std::string& path, std::string_view bytes, Sync sync) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const GuardedPlace& target = place.value();
  struct stat old {};
  const bool isThere = ::fstatat(target.folder.get(), target.name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (isThere && S_ISDIR(old.st_mode)) return systemError(EISDIR, path);
  const auto written =
      writeReplacement(target, isThere && S_ISREG(old.st_mode) ? &old : nullptr, bytes, path, {.sync = sync});
  return written ? Result<void>() : written.error();
}

}  // namespace

Result<void> GuardedFileChanges::writeAtomically(const std::string& path, std::string_view bytes) {
  return replaceFile(path, bytes, Sync::yes);
}

Result<void> GuardedFileChanges::writeAtomicallyUnsynced(const std::string& path, std::string_view bytes) {
  return replaceFile(path, bytes, Sync::no);
}

Result<void> GuardedFileChanges::createFileUnsynced(const std::string& path, std::string_view bytes) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const auto written =
      writeReplacement(place.value(), nullptr, bytes, path, {.sync = Sync::no, .existing = Existing::kept});
  return written ? Result<void>() : written.error();
}

Result<FileState> GuardedFileChanges::replaceUnchanged(const std::string& path,
                                                       const std::optional<FileState>& seen,
                                                       std::string_view bytes) {
  const auto place = openGuardedPlace(path);
  if (!place) return place.error();
  const GuardedPlace& target = place.value();
  const auto refusal = [&] { return isStill(target, seen) ? 0 : EAGAIN; };
  struct stat old {};
  const bool isThere = ::fstatat(target.folder.get(), target.name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  return writeReplacement(target, isThere && S_ISREG(old.st_mode) ? &old : nullptr, bytes, path,
                          {.refusal = refusal});
}

Result<std::unique_ptr<WritableFile>> GuardedFileChanges::openForWriting(const std::string& path) {
  auto file = openFileItself(path, O_WRONLY);
  if (!file) return file.error();
  return std::unique_ptr<WritableFile>(std::make_unique<GuardedWritableFile>(std::move(file).value(), path));
}

}  // namespace platform
