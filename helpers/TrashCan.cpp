#include "helpers/TrashCan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/FileRights.h"
#include "platform/posix/PrivateFolder.h"

namespace helpers {
namespace {

using foundation::Result;
using foundation::systemError;
using platform::UniqueDescriptor;

constexpr unsigned kMostNames = 100'000;
constexpr uid_t kFirstPerson = 500;  // the first number that a Mac gives to a person

bool isPersonOrRoot(uid_t user) {
  return user == 0 || user >= kFirstPerson;
}

/// Modes are given in full while it lives: the file mode mask takes nothing away.
class ExactModes {
 public:
  ExactModes() : mask_(umask(0)) {}
  ~ExactModes() { umask(mask_); }
  ExactModes(const ExactModes&) = delete;
  ExactModes& operator=(const ExactModes&) = delete;

 private:
  mode_t mask_;
};

/// A folder of a user's own is made with the user's rights alone.
std::optional<platform::FileRights> rightsOf(const Account& owner) {
  if (geteuid() != 0 || owner.user == 0) return std::nullopt;
  return platform::FileRights{owner.user, owner.group};
}

struct OpenFolder {
  UniqueDescriptor descriptor;
  FileStatus status;
};

/// Opens a folder that must be real and belong to `user` or to root; makes it where it is missing.
Result<OpenFolder> openOwnFolder(int parent, const std::string& name, mode_t mode, const Account& owner,
                                 const std::string& path) {
  {
    const ExactModes exactModes;
    const platform::FileRightsScope rights(rightsOf(owner));
    if (!rights.isInForce()) return systemError(EPERM, path);
    if (mkdirat(parent, name.c_str(), mode) != 0 && errno != EEXIST) {
      const int error = errno;
      if (faccessat(parent, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) return systemError(error, path);
    }
  }
  auto folder = openEntry(parent, name, path);
  if (!folder) return folder.error();
  const auto status = statusOf(folder.value().get(), path);
  if (!status) return status.error();
  if (!status.value().isFolder())
    return errorWithReason(ENOTDIR, path, "not a folder, not used as the trash");
  if (status.value().owner != owner.user && !isTrustedOwner(status.value().owner)) {
    return errorWithReason(EACCES, path, "belongs to somebody else, not used as the trash");
  }
  return OpenFolder{std::move(folder).value(), status.value()};
}

std::string pathOf(const std::vector<PathLevel>& way, std::size_t levelCount) {
  std::string path;
  for (std::size_t i = 1; i < levelCount; ++i) path += "/" + way[i].name;
  return path;
}

bool isHomeOf(const Surroundings& surroundings, const Account& account, const FileStatus& folder) {
  if (!isPersonOrRoot(account.user) || account.user != folder.owner) return false;
  const auto home = locate(surroundings, account.home, LastLink::follow);
  return home && home.value().status().isSameFile(folder);
}

bool isHomeByPlace(const std::vector<PathLevel>& way, std::size_t level) {
  if (level != 2 || (way[1].name != "Users" && way[1].name != "home")) return false;
  return way[2].name != "Shared" && way[2].status.owner >= kFirstPerson;
}

std::optional<Account> homeOwner(const Surroundings& surroundings, const std::vector<PathLevel>& way,
                                 std::size_t levelCount) {
  for (std::size_t level = levelCount - 1; level > 0; --level) {
    const FileStatus& folder = way[level].status;
    for (const Account& account : surroundings.accounts) {
      if (isHomeOf(surroundings, account, folder)) return account;
    }
    if (isHomeByPlace(way, level)) return Account{"", folder.owner, folder.group, pathOf(way, level + 1)};
  }
  return std::nullopt;
}

Account rootAccount(const Surroundings& surroundings) {
  const auto found = std::find_if(surroundings.accounts.begin(), surroundings.accounts.end(),
                                  [](const Account& account) { return account.user == 0; });
  return found == surroundings.accounts.end() ? Account{"root", 0, 0, "/var/root"} : *found;
}

}  // namespace

Account trashAccount(const Surroundings& surroundings, const std::vector<PathLevel>& way,
                     std::size_t levelCount) {
  if (auto owner = homeOwner(surroundings, way, levelCount)) return *owner;
  if (auto console = surroundings.consoleAccount()) return *console;
  return rootAccount(surroundings);
}

/// The steps of TrashCan::open.
class TrashSearch {
 public:
  TrashSearch(const Surroundings& surroundings, Report& report, const std::vector<PathLevel>& way,
              std::size_t levelCount)
      : report_(report),
        way_(way),
        levelCount_(levelCount),
        account_(trashAccount(surroundings, way, levelCount)),
        home_(locate(surroundings, account_.home, LastLink::follow)) {}

  Result<TrashCan> run() {
    if (home_ && home_.value().status().isSameVolume(items())) return homeTrash();
    Result<TrashCan> own = volumeTrash();
    if (own || own.error().code == EROFS) return own;
    return homeTrash();
  }

 private:
  [[nodiscard]] const FileStatus& items() const { return way_[levelCount_ - 1].status; }

  Result<TrashCan> homeTrash() {
    if (!home_) return home_.error();
    const PathEntry& home = home_.value();
    if (home.status().owner != account_.user) {
      return errorWithReason(EACCES, home.path, "not the home folder of the user whose trash is wanted");
    }
    return opened(home.self().descriptor.get(), ".Trash", home.path + "/.Trash");
  }

  Result<TrashCan> volumeTrash() {
    const std::size_t top = volumeTop();
    const std::string path = pathOf(way_, top + 1) + "/.Trashes";
    const Account us{"", geteuid(), getegid(), ""};
    auto shared = openOwnFolder(way_[top].descriptor.get(), ".Trashes", 01333, us, path);
    if (!shared) return shared.error();
    const std::string own = std::to_string(account_.user);
    return opened(shared.value().descriptor.get(), own, path + "/" + own);
  }

  /// The highest folder on the way that is still on the items' volume.
  [[nodiscard]] std::size_t volumeTop() const {
    std::size_t top = levelCount_ - 1;
    while (top > 0 && way_[top - 1].status.isSameVolume(items())) --top;
    return top;
  }

  Result<TrashCan> opened(int parent, const std::string& name, const std::string& path) {
    auto folder = openOwnFolder(parent, name, 0700, account_, path);
    if (!folder) return folder.error();
    return TrashCan(std::move(folder.value().descriptor), folder.value().status, path, report_);
  }

  Report& report_;
  const std::vector<PathLevel>& way_;
  std::size_t levelCount_;
  Account account_;
  Result<PathEntry> home_;
};

TrashCan::TrashCan(UniqueDescriptor folder, FileStatus status, std::string path, Report& report)
    : folder_(std::move(folder)), status_(status), path_(std::move(path)), report_(&report) {
  const long longest = fpathconf(folder_.get(), _PC_NAME_MAX);
  longestName_ = longest > 0 ? static_cast<std::size_t>(longest) : 255;
}

Result<TrashCan> TrashCan::open(const Surroundings& surroundings, Report& report,
                                const std::vector<PathLevel>& way, std::size_t levelCount) {
  return TrashSearch(surroundings, report, way, levelCount).run();
}

Result<std::string> TrashCan::rename(int folder, const std::string& name, const std::string& path,
                                     const TrashName& names) {
  for (unsigned attempt = 0; attempt < kMostNames; ++attempt) {
    const std::string candidate = names.candidate(attempt, longestName_);
    const auto moved = renameWithoutReplacing(folder, name, folder_.get(), candidate, path, renameFlags_);
    if (moved) return candidate;
    if (moved.error().code != EEXIST) return moved.error();
  }
  return systemError(EEXIST, path);
}

Result<std::string> TrashCan::take(int folder, const std::string& name, const std::string& path,
                                   const TrashName& names) {
  Result<std::string> renamed = rename(folder, name, path, names);
  if (renamed || renamed.error().code != EXDEV) return renamed;
  return takeByCopy(folder, name, path, names);
}

Result<std::string> TrashCan::takeByCopy(int folder, const std::string& name, const std::string& path,
                                         const TrashName& names) {
  Result<std::string> named = systemError(EXDEV, path);
  const auto givePlace = [&](int inside, const std::string& copy) -> Result<void> {
    named = rename(inside, copy, path, names);
    return named ? Result<void>() : named.error();
  };
  bool isTold = false;
  const auto keep = [&](const std::string& kept, const std::string& reason) {
    isTold = true;
    report_->failure(kept, reason);
  };
  const auto moved = platform::moveByCopy(folder, name, folder_.get(), path, givePlace, keep, copyOptions());
  // The copy is whole and in the trash; what had to stay is told.
  if (named && !moved && !isTold) report_->failure(moved.error());
  if (named) return named;
  if (moved.error().code == ECANCELED) return errorWithReason(ECANCELED, path, "not moved: asked to stop");
  return moved.error();
}

platform::CopyOptions TrashCan::copyOptions() const {
  platform::CopyOptions options = platform::optionsForMoving();
  options.onProgress = [this](const platform::CopyProgress&) {
    if (onCopyStep_) onCopyStep_();
    return !stopRequested();
  };
  if (onCopyStep_) options.progressInterval = std::chrono::milliseconds(0);
  return options;
}

Result<std::string> TrashCan::makeFolder(const TrashName& names, const FileStatus& like,
                                         const std::function<void()>& onMade) {
  for (unsigned attempt = 0; attempt < kMostNames; ++attempt) {
    const std::string candidate = names.candidate(attempt, longestName_);
    if (mkdirat(folder_.get(), candidate.c_str(), 0700) == 0) {
      if (onMade) onMade();
      if (auto given = giveFolder(candidate, like); !given) return given.error();
      return candidate;
    }
    if (errno != EEXIST) return systemError(errno, path_ + "/" + candidate);
  }
  return systemError(EEXIST, path_);
}

/// Only a folder that is the one that was made gets another owner: its name may lead elsewhere by now.
Result<void> TrashCan::giveFolder(const std::string& name, const FileStatus& like) const {
  const std::string path = path_ + "/" + name;
  const UniqueDescriptor made(
      openat(folder_.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!made) return systemError(errno, path);
  if (auto fresh = platform::requireFreshFolder(made.get(), 0700, path); !fresh) return fresh;
  if (fchown(made.get(), like.owner, like.group) != 0) return systemError(errno, path);
  if (fchmod(made.get(), like.permissions() & static_cast<mode_t>(0777)) != 0)
    return systemError(errno, path);
  return {};
}

Result<TrashCan> TrashCan::opened(const std::string& name) const {
  const std::string path = path_ + "/" + name;
  auto folder = openEntry(folder_.get(), name, path, O_DIRECTORY);
  if (!folder) return folder.error();
  const auto status = statusOf(folder.value().get(), path);
  if (!status) return status.error();
  return TrashCan(std::move(folder).value(), status.value(), path, *report_);
}

void TrashCan::removeIfEmpty(const std::string& name) const {
  unlinkat(folder_.get(), name.c_str(), AT_REMOVEDIR);
}

}  // namespace helpers
