#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/posix/CopyProgress.h"
#include "platform/posix/CopyRecord.h"
#include "platform/posix/FileMetadata.h"
#include "platform/posix/PathEntry.h"
#include "platform/posix/TreeRemoval.h"

/// Copying files, links, FIFOs, sockets, devices and whole folders, by descriptors and without following any
/// link: for moves to another file system, by root too, and for copies that a user wants to have.
///
/// Kept are contents with their holes, owner, mode, times of access and modification, extended attributes
/// (with the access control lists), and hard links among what is copied, where the file system has such.
/// Names are bytes. What cannot be read, vanishes or is exchanged while it is copied is an error that names
/// it; so is a folder that holds the place it is copied to (EINVAL), and folders deeper than 256
/// (ENAMETOOLONG).
///
/// What a mount disarms is not armed by root's copying it to another one: where set-ID bits take no effect
/// (nosuid) they and file capabilities stay behind from there on, and where devices do not (nodev) a device
/// is an error (ENOTSUP).
///
/// When an error comes (ECANCELED for a cancelled copy) nothing of the copy is left.
namespace platform {

enum class Check {
  none,
  compare  ///< every file is read back, and must be equal to an original that has not changed meanwhile
};

enum class Flush {
  none,
  sync  ///< all is on the disk, and is read back from there
};

enum class Mounts {
  enter,
  refuse  ///< an item that is mounted in what is copied is an error (EXDEV)
};

struct CopyOptions {
  Privileges privileges = Privileges::keep;  ///< `drop` refuses devices too: ENOTSUP
  Fidelity fidelity = Fidelity::possible;
  Check check = Check::none;
  Flush flush = Flush::none;
  Mounts mounts = Mounts::enter;
  /// The item must be a folder, and its copy is this process's user's with that mode, whatever the item is.
  std::optional<mode_t> topMode = std::nullopt;
  OnProgress onProgress = {};
  std::chrono::milliseconds progressInterval = kProgressInterval;
  /// Where the copy is compared; a larger record is in a file. Turned by tests alone, which end a move at
  /// each of its calls: so few entries have a record in a file, where else it would take a thousand.
  std::size_t recordInMemory = kRecordInMemory;
};

/// What a copy must be before its original is removed. A device, which the source's mount may have disarmed,
/// is refused, and root drops privileges for the same reason.
[[nodiscard]] CopyOptions optionsForMoving();

/// Copies an item under a name that is not taken (EEXIST). `path` is the item's path for errors and progress.
/// Answers what removeCopied() needs to know; nothing is in it where the copy was not compared.
/// REQUIRES that `toFolder` is open for reading and is a folder that nobody else can enter (PrivateFolder).
[[nodiscard]] foundation::Result<CopyRecord> copyItem(int fromFolder, const std::string& fromName,
                                                      int toFolder, const std::string& toName,
                                                      const std::string& path, const CopyOptions& options);

/// An item in an open folder. `path` is for errors and progress.
struct ItemPlace {
  int folder = -1;
  const std::string& name;
  const std::string& path;
};

/// Copies an item to a place where nothing is: EEXIST otherwise. The copy grows in a PrivateFolder there and
/// takes its name when it is whole.
[[nodiscard]] foundation::Result<void> copyIntoPlace(const ItemPlace& from, const ItemPlace& to,
                                                     const CopyOptions& options = {});

/// The same by paths. Links on the way to both are followed, by root only where it may (GuardedFolders.h); a
/// link at the end of `from` is copied itself.
[[nodiscard]] foundation::Result<void> copyItemAtPath(const std::string& from, const std::string& to,
                                                      const CopyOptions& options = {});

/// Gives what is finished in the open folder its place.
using GivePlace = std::function<foundation::Result<void>(int folder, const std::string& name)>;
/// What of the originals was not removed, and why.
using OnKept = std::function<void(const std::string& path, const std::string& reason)>;

/// Moves an item to another file system: copies it into a PrivateFolder in `toFolder`, has it given its
/// place, and removes what was copied. An original that has changed since, or that came later, stays; each is
/// told, and the first such is the error (EBUSY, ENOTEMPTY); so it is where the record of what was copied
/// cannot be read (EIO where it was altered), and what is left stays. On any other error all originals are
/// where they were; where the new name could not be brought to the disk, the whole copy is there as well.
[[nodiscard]] foundation::Result<void> moveByCopy(int fromFolder, const std::string& fromName, int toFolder,
                                                  const std::string& path, const GivePlace& givePlace,
                                                  const OnKept& onKept = {},
                                                  const CopyOptions& options = optionsForMoving());

/// Removes what was copied and compared, and only that, as moveByCopy() does it. Where the record cannot be
/// read further, what is left stays, which is told of the item itself.
foundation::Result<void> removeCopied(int folder, const CopyRecord& copied, const std::string& path,
                                      const OnKept& onKept = {});

/// How much a copy will have to do, in the terms of CopyProgress.
struct TreeSize {
  std::uint64_t bytes = 0;
  std::uint64_t objects = 0;
};

/// Counts an item and all below it; what cannot be looked at is an error. ECANCELED when `goesOn` says no,
/// which is asked for every item, and for every entry of a folder while that is listed.
[[nodiscard]] foundation::Result<TreeSize> sizeOfTree(const std::string& path,
                                                      const std::function<bool()>& goesOn = {});

}  // namespace platform
