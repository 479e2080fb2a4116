#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileReferences.h"
#include "platform/OSStatus.h"
#include "services/TGFileOperation.h"

/// Whether a verb that fails as the current user goes on with administrator rights.
enum class ShouldAuth { no, yes };

/// A colour in the calibrated hue-saturation-brightness space; each component from 0 to 1.
struct TGColor {
  float hue = 0;
  float saturation = 0;
  float brightness = 0;
  float alpha = 1;
  bool operator==(const TGColor&) const = default;
};

/// The one place where files are looked at, trashed, removed, created, copied and moved.
///
/// Paths are POSIX paths, held byte for byte. No path (nullopt), an empty one and one with a zero byte in it
/// name nothing: questions about them are answered as for an item that is missing. Nothing here throws,
/// whatever it is given; all functions are static, keep no state and may be called from any thread.
class TGFileManager {
 public:
  using Path = std::optional<std::string>;
  using Paths = std::vector<std::string>;
  using Delegate = std::shared_ptr<TGFileOperationDelegate>;
  using Object = std::shared_ptr<void>;

  TGFileManager() = delete;

  // Verbs. Each tries as the current user first. Where that fails, it logs "Error removing file: %@.
  // Authorizing..." (on purpose also where no authorising follows; trash logs nothing) and, unless told not
  // to, goes on with the verb of TGAuthorization, whose answer it gives: that a tool was started, not that it
  // is done. A verb answers whether it succeeded.

  /// Unlocks an item and moves it to the user's trash, under a free name. What does not exist (a link that
  /// leads nowhere is nothing) is trashed already.
  static bool trashFile(const Path& path, ShouldAuth shouldAuth = ShouldAuth::yes);

  /// Unlocks an item and deletes it with all it holds; what does not exist is removed already.
  static bool removeFile(const Path& path, ShouldAuth shouldAuth = ShouldAuth::yes);

  /// Creates a folder and the folders above it that are missing; one that is there already is success.
  static bool createDirectory(const Path& path, ShouldAuth shouldAuth = ShouldAuth::yes);

  /// Copies an item to a path where nothing is, after unlocking the folder that it goes into.
  static bool copyFile(const Path& source, const Path& toPath, ShouldAuth shouldAuth = ShouldAuth::yes);

  /// Moves an item to a path where nothing is. Unlocks the destination, and the files in the folder of the
  /// source's name in it.
  static bool moveFile(const Path& source, const Path& toPath, ShouldAuth shouldAuth = ShouldAuth::yes);

  // Verbs with a time-out: the verb, with its fallback, then a wait until the file system shows its result
  // (the source is gone, the destination is there). On the main thread the wait dispatches user-interface
  // events, elsewhere it looks every 0.3 seconds. They answer the state at the end; a verb that fails is not
  // waited for.

  static bool trashFile(const Path& path, std::chrono::seconds timeout);
  static bool removeFile(const Path& path, std::chrono::seconds timeout);
  static bool createDirectory(const Path& path, std::chrono::seconds timeout);
  static bool copyFile(const Path& source, const Path& toPath, std::chrono::seconds timeout);
  /// A source and destination that differ only in case are not waited for.
  static bool moveFile(const Path& source, const Path& toPath, std::chrono::seconds timeout);

  // Folders.

  /// Trashes every entry; goes on after a failure, and then answers false. A folder that cannot be listed
  /// counts as empty, here and below.
  static bool trashDirectoryContents(const Path& folder, ShouldAuth shouldAuth = ShouldAuth::yes);

  /// Copies every entry, each with the time-out; ends at the first failure.
  static bool copyContentsOfDirectory(const Path& source, const Path& toPath, std::chrono::seconds timeout);

  /// Nothing is in the folder but ".DS_Store", the icon file "Icon\r", and folders that are empty in this
  /// sense.
  [[nodiscard]] static bool isFolderEmpty(const Path& folder);

  /// Removes a folder that is empty; false for one that is not.
  static bool removeFolderIfEmpty(const Path& folder);

  /// Trash every file with that name, or with that extension (whatever its case), in a folder and all below
  /// it; answer what was to be trashed, whether it could be or not. Links to folders are followed, each
  /// folder once; root does not follow them, because they may be anybody's.
  static Paths trashFilesNamed(const std::string& name, const Path& folder);
  static Paths trashFilesOfType(const std::string& extension, const Path& folder);

  /// Mirrors a folder (for a file or package: the one it lies in) below another and answers the mirror's
  /// path:
  /// "/Users/x/file.txt" below "/tmp/mirror" gives "/tmp/mirror/Users/x". It is created if missing.
  static std::string createDirectoryStructure(const Path& path, const Path& destination);

  /// Packs an item, with its own name, into a zip archive by /usr/bin/ditto. An archive that is there already
  /// goes to the trash. Answers whether the archive exists afterwards.
  static bool compressFile(const Path& source, const Path& toDestinationFile);

  // Copies with progress.

  /// Begins to copy an item in the background and answers whether it has begun; the folder for it is created
  /// if missing. The delegate, which is held until the end, hears of it on the main thread, which must be
  /// serving its work. Failures to begin are written to the system console.
  static bool copyFileWithProgress(const Path& source, const Path& destination, const Delegate& delegate,
                                   const Object& object = nullptr, const Object& object2 = nullptr);

  /// Stops a copy that runs; what it has copied so far is removed.
  static void cancelFileOperation(const platform::FileOperationRef& operation);

  // Questions. No function from here on logs.

  /// The path exists, symbolic links followed. No path is no file.
  [[nodiscard]] static bool fileExistsAtPath(const Path& path);

  /// The path exists and is a directory.
  [[nodiscard]] static bool isDirectoryAtPath(const Path& path);

  /// The desktop presents the path as a package: a directory shown as one file.
  [[nodiscard]] static bool isPackageAtPath(const Path& path);

  /// The path is a symbolic link, wherever it leads.
  [[nodiscard]] static bool isSymbolicLinkAtPath(const Path& path);

  /// Bytes. For a folder (or a link to one) those of all it holds; else the item's own: a link counts with
  /// the length of its target. A folder that holds itself through a link counts once.
  [[nodiscard]] static std::uint64_t fileSize(const Path& path);

  // The immutable attribute: a locked item can be neither changed nor removed.

  [[nodiscard]] static bool isFileLocked(const Path& path);
  static void lockFile(const Path& path);
  static void unlockFile(const Path& path);

  /// Lock and unlock what is in a folder and all below it that is no folder; the folder and its sub-folders
  /// themselves are left as they are, on purpose: what is in a locked folder could not be reached any more.
  static void lockFolder(const Path& folder);
  static void unlockFolder(const Path& folder);

  // Names.

  /// The existing paths that a pattern matches. A component that contains "*" is matched against the entries
  /// of a folder, hidden ones included, in the case given; in it "*" stands for any characters, "?" for one,
  /// "[" for one of a set. Every other component is a name. Without any "*" the one path of the pattern is
  /// answered, existing or not. A pattern is looked up from the base, without one from the root folder.
  [[nodiscard]] static Paths filesMatchingWildcardPath(const std::string& pattern,
                                                       const Path& fromBasePath = std::nullopt);

  /// The first match; without one the base joined with the pattern (nullopt without a base).
  [[nodiscard]] static Path decodeWildcardPath(const std::string& pattern, const Path& fromBasePath);

  /// The path, or the first of "Report 2.txt", "Report 3.txt", ... that does not exist.
  [[nodiscard]] static std::string uniqueFilename(const std::string& path);

  /// A name as it can be given to a file: without one leading point, without blanks at its ends, slashes and
  /// colons.
  [[nodiscard]] static std::string validateFilename(const std::string& name);

  /// "1023 B", "1.00 KB", "1.00 MB", "1.00 GB"; units are powers of 1024.
  [[nodiscard]] static std::string formatFileSize(double bytes);

  // What the Finder and Launch Services know of a file.

  /// Sets the modification time of an existing file to now, with administrator rights if need be; answers
  /// whether the tool for it was run.
  static bool touchFile(const Path& path);

  /// The item's Finder flags, all 16 bits of them on purpose; 0 on failure.
  [[nodiscard]] static std::uint16_t finderColorIndexForPath(const Path& path);

  /// The colour of the item's label; nullopt where finderColorIndexForPath answers anything but 2 to 15.
  [[nodiscard]] static std::optional<TGColor> finderColorForPath(const Path& path);

  /// Sets the label, an even number from 0 (none) to 14; other bits of the index are left out.
  static void setFinderColorIndex(int index, const Path& path);

  /// The reference of an item, which stays its own when it is renamed; all zeros for what does not exist.
  [[nodiscard]] static platform::FSRef stringToFSRef(const Path& path);
  [[nodiscard]] static Path stringWithFSRef(const platform::FSRef& reference);

  /// Makes an application known by its bundle identifier, for good.
  static bool registerApplicationWithLaunchServices(const Path& path);

  /// Tells the file browser that an item has changed, without waiting for it; 0 on success.
  static platform::OSStatus notifyFileSystemChanged(const Path& path);
};

/// Tells the file browser that the item of a reference has changed, without waiting for it; 0 on success.
platform::OSStatus SendFinderSyncEvent(const platform::FSRef& reference);
