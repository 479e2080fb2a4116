#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

/// What a file system does beyond POSIX, each system by calls of its own. Where a number is answered it is 0
/// or an errno value.
namespace platform {

/// Renames without replacing anything: EEXIST where the new name is taken; EINVAL or ENOSYS where the kernel
/// or the file system cannot.
[[nodiscard]] int renameIfFree(int fromFolder, const std::string& fromName, int toFolder,
                               const std::string& toName);

/// Two entries of a folder change names, in one step.
[[nodiscard]] int exchangeNames(int folder, const std::string& one, const std::string& other);

/// Makes an open, empty file share the content of another; no where the file system cannot.
[[nodiscard]] bool shareContents(int from, int to);

/// Copies a piece of a file without bringing it here, and moves both positions on: as copy_file_range(2).
/// -1 and errno where the system cannot.
[[nodiscard]] ssize_t copyPiece(int from, off_t& fromAt, int to, off_t& toAt, std::size_t length);

/// Brings all of a volume to its disk, by any open item of it.
[[nodiscard]] int flushVolume(int item);

/// Has the next reading of a file that is on the disk come from there.
void forgetCached(int file);

/// Makes a FIFO, a socket or a device; the mode holds its kind.
[[nodiscard]] int makeSpecialFile(int folder, const std::string& name, mode_t mode, dev_t device);

/// What the mount that an item was reached through lets take effect.
struct MountEffects {
  bool setIds = true;
  bool devices = true;
};
[[nodiscard]] int mountEffects(int held, MountEffects& effects);

/// The flag of fstatat(2) by which looking at a folder mounts nothing there; 0 where there is none.
extern const int kWithoutMounting;

/// What unlink(2) says to a folder.
extern const int kUnlinkedFolder;

}  // namespace platform
