#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/foundation/Result.h"
#include "platform/posix/UniqueDescriptor.h"

namespace ditto {

/// A folder or the place of one (O_PATH) by its path. For root a link on the way is followed only where root
/// alone could have put it, as openGuardedFolder() says; for others as usual.
[[nodiscard]] foundation::Result<platform::UniqueDescriptor> openPlace(const std::string& path);

/// A file that gets its name only when it is whole. Until then it is a hidden file beside that name,
/// ".ditto-" and twelve random digits, which goes with the object, and also when SIGHUP, SIGINT, SIGQUIT or
/// SIGTERM end the process (a signal that the process was started to ignore stays ignored). What has the name
/// already stays there, untouched, until it is replaced in one step.
///
/// There may be one at a time in a process.
class PendingFile {
 public:
  /// The new file has mode 0644 less the umask; made by root in somebody else's folder, it belongs to that
  /// folder's owner and group. Errors: EISDIR for a folder's path, EINVAL where something
  /// else than a regular file or a link has the name (a device is not to be replaced), else the system's.
  [[nodiscard]] static foundation::Result<PendingFile> create(const std::string& path);
  PendingFile(PendingFile&& other) noexcept = default;
  PendingFile& operator=(PendingFile&&) = delete;
  ~PendingFile();

  /// Open for writing.
  [[nodiscard]] int descriptor() const { return file_.get(); }

  /// Whether a folder is the one in which the file will lie.
  [[nodiscard]] bool liesIn(const struct stat& folder) const;
  /// Whether a name in that folder is its present or its final one.
  [[nodiscard]] bool hasName(const std::string& name) const { return name == name_ || name == temporary_; }

  /// Brings the content to the disk, then gives the file its name, in the place of what had it.
  [[nodiscard]] foundation::Result<void> publish();

 private:
  PendingFile() = default;

  std::string path_;
  std::string name_;
  std::string temporary_;
  struct stat place_ {};
  platform::UniqueDescriptor folder_;
  platform::UniqueDescriptor file_;
};

}  // namespace ditto
