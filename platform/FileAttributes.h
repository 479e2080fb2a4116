#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/foundation/Result.h"

namespace platform {

enum class Immutable { no, yes };

/// The 32 bytes of an item's Finder information (FileInfo and ExtendedFileInfo, or FolderInfo and
/// ExtendedFolderInfo, of Apple's Finder.h), big-endian as on the disk. The Finder flags are the 16-bit word
/// at kFinderFlagsOffset, for files and folders alike.
using FinderInformation = std::array<std::uint8_t, 32>;
inline constexpr std::size_t kFinderFlagsOffset = 8;

/// What a Mac's file system keeps of an item beside its content. A link in the last component is the item
/// itself, never what it leads to. Nothing is opened that could notice it: neither a FIFO nor a device.
class FileAttributes {
 public:
  virtual ~FileAttributes() = default;

  /// A symbolic link is there, and its target can be read.
  [[nodiscard]] virtual bool isSymbolicLink(const std::string& path) = 0;

  /// The item is locked: it can be neither changed nor removed (NSFileImmutable).
  [[nodiscard]] virtual bool isImmutable(const std::string& path) = 0;

  /// Locks an item or unlocks it. An item that is in that state already is left alone.
  virtual foundation::Result<void> setImmutable(const std::string& path, Immutable immutable) = 0;

  /// The Finder information, all zeros where an item has none; an error where nothing is there or where the
  /// file system cannot keep any.
  [[nodiscard]] virtual foundation::Result<FinderInformation> finderInformation(const std::string& path) = 0;

  virtual foundation::Result<void> setFinderInformation(const std::string& path,
                                                        const FinderInformation& information) = 0;
};

}  // namespace platform
