#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Result.h"

namespace platform {

/// For whom files are gathered: an account's name; nullopt for the process's own account.
using Reader = std::optional<std::string>;

/// What becomes of a symbolic link.
enum class AtLink {
  copyLink,        ///< it is copied as a link
  copyDestination  ///< the file that it leads to is copied under its name
};

/// A folder that copies are gathered in, kept from all other gatherings as long as this lives.
class FolderInUse {
 public:
  virtual ~FolderInUse() = default;
};

/// Gathering copies of files for somebody, in a folder where nobody else sees them.
///
/// The process may have more rights than the reader, who will be given the copies and may have laid out what
/// is gathered: links that lead anywhere, and items that are exchanged while they are looked at. So nothing
/// is listed, seen or read that the reader could not list, see and read:
///  - a process that is not root has its own rights, whoever the reader is;
///  - root looks and reads with the rights of the reader's account, its groups included, and of no other;
///  - root without a reader gathers for itself, and reads each item with the rights of the account that owns
///    it: a link opens no more than its owner could. What has further names (hard links) it reads with the
///    rights that every account has, because others may have given it this one.
/// An item is opened once and then copied through its descriptor. Nothing blocks on a FIFO or a device.
class Gathering {
 public:
  virtual ~Gathering() = default;

  /// Makes a folder that only the process's account can enter (mode 0700), and those above it that are
  /// missing. EEXIST when anything is there already: it may be somebody else's. For root EPERM where others
  /// could put something else in its place afterwards: a folder on the way is not root's, or others may write
  /// to it and it has no sticky bit. EBUSY when another gathering took it at once.
  virtual foundation::Result<std::unique_ptr<FolderInUse>> createPrivateFolder(const std::string& path) = 0;

  /// Takes what an earlier createPrivateFolder() has left, so that it can be removed: EBUSY while it is in
  /// use, by another process or in this one. nullptr where no folder of the process's account is, which
  /// nobody uses.
  virtual foundation::Result<std::unique_ptr<FolderInUse>> useLeftFolder(const std::string& path) = 0;

  /// The names in a folder, as FileQueries::contentsOfDirectory.
  [[nodiscard]] virtual foundation::Result<std::vector<std::string>> contentsOfDirectory(
      const Reader& reader, const std::string& path) = 0;

  /// Something is there (a dangling link is nothing) and the reader can see it.
  [[nodiscard]] virtual bool exists(const Reader& reader, const std::string& path) = 0;

  /// Copies a file, a link or a whole folder to a path where nothing is (EEXIST otherwise), in a folder that
  /// only the process can change. Modes (which always let the owner read the copy, and carry no set-id bits),
  /// times and holes stay; the copies belong to the process's account. What else an item can be is ENOTSUP.
  ///
  /// `atLink` is for a link at `from` itself; links inside of folders are always copied as links. A relative
  /// destination is looked up from the link's folder, "~" and "~name" at its beginning are expanded, links on
  /// the way are followed. A link whose destination the reader cannot see, or which leads to anything but a
  /// file, is copied as a link. Files are copied as long as they are when they are opened, however they grow;
  /// one that is cut meanwhile ends where its end was met.
  /// A file that cannot be copied whole leaves nothing behind.
  virtual foundation::Result<void> copy(const Reader& reader, const std::string& from, const std::string& to,
                                        AtLink atLink) = 0;
};

}  // namespace platform
