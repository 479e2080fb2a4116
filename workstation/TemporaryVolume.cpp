#include "workstation/TemporaryVolume.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace workstation {
namespace {

namespace fs = std::filesystem;

fs::path freshFolder() {
  auto pattern = (fs::temp_directory_path() / "workstation.XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  return pattern;
}

void unlock(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return;
  int flags = 0;
  const bool locked = ::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0;
  flags &= ~FS_IMMUTABLE_FL;
  if (locked) ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags);
  ::close(descriptor);
}

}  // namespace

TemporaryVolume::TemporaryVolume(const Plan& plan) : volume_(freshFolder()) {
  try {
    makeVolume(volume_.folder(), plan);
  } catch (...) {
    removeVolume(volume_);
    throw;
  }
}

TemporaryVolume::~TemporaryVolume() {
  removeVolume(volume_);
}

void removeVolume(const Volume& volume) {
  std::error_code error;
  for (auto entry = fs::recursive_directory_iterator(volume.folder(), error); entry != fs::end(entry);
       entry.increment(error)) {
    const auto type = entry->symlink_status(error).type();
    if (type == fs::file_type::regular || type == fs::file_type::directory) unlock(entry->path());
  }
  fs::remove_all(volume.folder(), error);
}

}  // namespace workstation
