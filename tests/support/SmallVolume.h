#pragma once

#include <sys/mount.h>
#include <unistd.h>

#include <string>

#include "tests/support/TemporaryFolder.h"

namespace support {

/// A file system of its own, in memory, of a size; gone with the object. Needs root.
class SmallVolume {
 public:
  explicit SmallVolume(const std::string& size = "1m")
      : isMounted_(::mount("tmpfs", folder_.path().c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0) {}
  ~SmallVolume() {
    if (isMounted_) ::umount2(folder_.path().c_str(), MNT_DETACH);
  }
  SmallVolume(const SmallVolume&) = delete;
  SmallVolume& operator=(const SmallVolume&) = delete;

  [[nodiscard]] bool isMounted() const { return isMounted_; }
  [[nodiscard]] const std::string& path() const { return folder_.path(); }
  [[nodiscard]] std::string operator/(const std::string& relative) const { return folder_ / relative; }

 private:
  TemporaryFolder folder_;
  bool isMounted_;
};

}  // namespace support
